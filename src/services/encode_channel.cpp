// encode_channel: typed values to bytes
// format: docs/formats/coded-object.md
// invariant: every byte that goes out is counted once
#include "encode_channel.h"

#include "trclog.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

namespace km {

static_assert(sizeof(long) == 8 && sizeof(int) == 4 && sizeof(float) == 4);
static_assert(std::endian::native == std::endian::little, "floats stand in this order on disk");

const char* const bulk_string_marker = "#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#";

void encode_channel::write(int byte) {
    buffered_output_channel::write(byte);
    ++bytes_written_;
}

void encode_channel::write(const unsigned char* buffer, int length) {
    buffered_output_channel::write(buffer, length);
    bytes_written_ += length;
}

void encode_channel::write_short(int value) {
    const unsigned char bytes[2] = {static_cast<unsigned char>(value >> 8),
                                    static_cast<unsigned char>(value)};
    write(bytes, 2);
}

void encode_channel::write_integer(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    const unsigned char bytes[4] = {
        static_cast<unsigned char>(bits >> 24), static_cast<unsigned char>(bits >> 16),
        static_cast<unsigned char>(bits >> 8), static_cast<unsigned char>(bits)};
    write(bytes, 4);
}

void encode_channel::write_long(long value) {
    const auto low = static_cast<std::int32_t>(value);
    write_integer(low < 0 ? -1 : 0);
    write_integer(low);
}

void encode_channel::write_string(const ustring& text) { text.writeUTF(*this); }

namespace {
// Such a text has the same bytes in every code page, and in the coded form.
bool is_plain(const char* text, std::size_t length) {
    return length < 0x8000 && std::all_of(text, text + length, [](char c) {
               return static_cast<unsigned char>(c) < 0x80;
           });
}
} // namespace

void encode_channel::write_string(const char* text) {
    const std::size_t length = text ? std::strlen(text) : 0;
    if (!is_plain(text, length)) {
        write_string(ustring(text));
        return;
    }
    write_short(static_cast<int>(length));
    write(reinterpret_cast<const unsigned char*>(text), static_cast<int>(length));
}

void encode_channel::write_float(float value) {
    unsigned char bytes[4];
    std::memcpy(bytes, &value, 4);
    write(bytes, 4);
}

void encode_channel::write_bulk_string(const pathname& path) {
    KM_TRACE_FUNCTION("encode_channel::write_bulk_string");
    std::int32_t lines = 0;
    if (FILE* in = std::fopen(path.mbcs_str(), "re")) {
        for (ustring line; line.getline(in); ++lines)
            write_string(line);
        std::fclose(in);
    }
    write_string(bulk_string_marker);
    write_integer(lines);
}

} // namespace km
