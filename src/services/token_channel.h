// token_channel: a text with its variables resolved, as bytes
//
// What a text file becomes when a package installs it with its variables in place.
#pragma once

#include "filter_channel.h"
#include "ustring.h"

#include <memory>

namespace km {

class istream_reader;
class variable_list;

// Hands out the bytes, in the code page of the locale, of the text in the inner channel after the
// substitution of its references "$(name)"; a name that nobody knows stays as it stands. A
// reference is seen whole up to about 256 characters, wherever it lies in the text.
//
// Bytes of the inner channel that are no character end the process with status -1
// (istream_reader). The inner channel is read ahead, and owned as by every filter. Errors of its
// own come before the inner channel's, and after one every read gives -1:
//    1   a null argument, or no memory
//   14   a character has no place in the code page (a variable's value may hold any)
class token_input_channel : public filter_input_channel {
  public:
    // The list of variables is lent for the life of the channel.
    token_input_channel(variable_list* variables, input_channel* inner);
    ~token_input_channel() override;
    int read() override;
    // Short at the end of the text. A failure in the middle gives -1; a length below 1 comes back.
    int read(unsigned char* buffer, int length) override;
    // As skip(); -1 if a failure let none go.
    long ignore(long count) override;
    // Reads up to `count` bytes of the result and drops them; how many went.
    virtual int skip(int count);
    int get_error() override;

  private:
    // Characters of a block, and those that a reference may need behind it.
    static constexpr int block_size = 256;
    static constexpr int ahead_size = 254;

    bool next_character();
    int append_from_reader(int most);
    void substitute();
    int convert();

    variable_list* variables_;
    std::unique_ptr<char16_t[]> wide_buffer_;
    std::unique_ptr<char[]> byte_buffer_;
    std::unique_ptr<istream_reader> text_reader_;
    int pending_bytes_ = 0;
    int byte_position_ = 0;
    unsigned line_position_ = 0;
    ustring line_;
    // The line is as the last substitution left it, which found nothing to replace.
    bool settled_ = false;
    int error_ = 0;
};

} // namespace km
