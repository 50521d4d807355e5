// reader: source of characters with push-back
#pragma once

#include "ustring.h"

namespace km {

// Gives 16-bit characters.
class reader {
  public:
    virtual ~reader() = default;
    // One character, -1 at the end.
    virtual int read();
    // Up to `length` characters to buffer + offset; how many, -1 if none came.
    virtual int read(char16_t* buffer, int offset, int length) = 0;
    // Drops up to n characters and returns how many went.
    virtual long skip(long n);
    virtual void close() = 0;
};

class string_reader : public reader {
  public:
    string_reader() = default;
    explicit string_reader(const ustring& text) : text_(text) {}
    void reset_stream(const ustring& text);
    using reader::read;
    // Stops at a NUL.
    int read(char16_t* buffer, int offset, int length) override;
    void close() override { reset_stream(ustring()); }

  private:
    ustring text_;
    int position_ = 0;
};

} // namespace km
