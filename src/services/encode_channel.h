// encode_channel: typed values to bytes
#pragma once

#include "filter_channel.h"
#include "pathname.h"

#include <cstdint>

namespace km {

// Writes typed values, big-endian but for floats, which stand in the machine's order. A long is 32
// bits of sign extension, then the low 32 bits. Texts: docs/formats/coded-object.md.
class encode_channel : public buffered_output_channel {
  public:
    static constexpr int default_size = 8192;
    explicit encode_channel(output_channel* inner, int size = default_size)
        : buffered_output_channel(inner, size) {}
    void write(int byte) override;
    void write(const unsigned char* buffer, int length) override;
    virtual void write_byte(int value) { write(value & 0xFF); }
    virtual void write_bytes(const unsigned char* bytes, int count) { write(bytes, count); }
    virtual void write_short(int value);
    virtual void write_integer(std::int32_t value);
    virtual void write_long(long value);
    virtual void write_string(const ustring& text);
    // Null writes the empty text.
    virtual void write_string(const char* text);
    virtual void write_float(float value);
    // The lines of the file, a marker and their number; a file that cannot be opened has none.
    virtual void write_bulk_string(const pathname& file);
    long get_bytes_written() const { return bytes_written_; }

  private:
    long bytes_written_ = 0;
};

// Ends the lines of a bulk string.
extern const char* const bulk_string_marker;

} // namespace km
