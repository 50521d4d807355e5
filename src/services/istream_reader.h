// istream_reader: characters out of a channel of bytes
#pragma once

#include "channel.h"
#include "reader.h"

#include <memory>

namespace km {

// Reads text in the code page of the locale (base/uxl) as 16-bit characters; a character above
// U+FFFF comes as its two units. It takes bytes from the channel one at a time and up to 8192
// characters ahead, so a channel of files wants a buffer between.
//
// Bytes that are no character end the process with status -1, behind a fatal trace line: a text in
// the wrong encoding would be acted on wrongly. So does a channel that fails inside a character.
class istream_reader : public reader {
  public:
    // The channel stays the caller's object in either case and must outlive the reader or its
    // close(); with `owns` not 0 the reader closes it.
    istream_reader(input_channel* channel, int owns);
    ~istream_reader() override;
    istream_reader(const istream_reader&) = delete;
    istream_reader& operator=(const istream_reader&) = delete;
    using reader::read;
    // Short only at the end; -1 also if the channel failed, which its get_error() tells.
    int read(char16_t* buffer, int offset, int length) override;
    // Forgets the channel and what was read ahead; later reads give -1.
    void close() override;
    // Replaces what is held by the next characters: how many (two units may stop it at 8191), -1
    // at the end.
    int fill_buffer();

  private:
    static constexpr int buffer_size = 8192;
    bool next_character(char16_t units[2]);
    [[noreturn]] void wrong_encoding(int bytes);

    input_channel* channel_;
    std::unique_ptr<char16_t[]> buffer_;
    int count_ = 0;
    int position_ = 0;
    int owns_;
    // A pair of units that did not fit any more; [0] is 0 if there is none.
    char16_t held_[2] = {0, 0};
};

} // namespace km
