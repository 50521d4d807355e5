// ustring_writer: output of texts to a channel, plain, as UTF or scrambled
#pragma once

#include "ustring.h"

#include <string>

namespace km {

class output_channel;

// Hands bytes to a channel, which it lends. A failure stays in the channel: get_error().
class writer {
  public:
    explicit writer(output_channel* to) : channel_(to) {}
    virtual ~writer() = default;
    virtual void write(int byte);
    virtual void write(const char* bytes, int count);
    virtual void flush();
    virtual int get_error();

  protected:
    output_channel* channel_;
};

// With `utf` each text goes out in the coded form of ustring::writeUTF; else as bytes of the
// default code page, with `terminator` followed by a 0 byte.
class ustring_writer : public writer {
  public:
    explicit ustring_writer(output_channel* to, int utf = 0, int terminator = 0)
        : writer(to), utf_(utf), terminator_(terminator) {}
    using writer::write;
    virtual void write(const ustring& text);
    // The text and a line feed.
    virtual void writeln(const ustring& text);
    virtual void writeln();
    virtual void write(const char* text);

  protected:
    // Bytes of the text that go out, with the 0 byte if one is wanted.
    int bytes_of(const char* text) const;

    int utf_;
    int terminator_;
};

// Scrambles what goes out as bytes: each is XORed with the next byte of the key, which begins again
// at its end. All writes are one run through the key. UTF texts go out as they are.
class ustring_xor_writer : public ustring_writer {
  public:
    // Copies the key; an empty one scrambles nothing.
    ustring_xor_writer(output_channel* to, const unsigned char* key, int length, int utf = 0,
                       int terminator = 0);
    using ustring_writer::write;
    void write(const char* text) override;

  private:
    std::string key_;
    std::string::size_type position_ = 0;
};

} // namespace km
