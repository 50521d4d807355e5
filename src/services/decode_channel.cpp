// decode_channel: bytes to typed values
// format: docs/formats/coded-object.md
// invariant: a short read is never unnoticed: it latches the error of decoding
#include "decode_channel.h"

#include "encode_channel.h"
#include "trclog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace km {

// Bytes of a block come next. What was pushed back comes before them.
bool decode_channel::has_block() {
    if (!in_blocks_ || pushed_back())
        return false;
    if (block_at_ == block_end_) {
        block_at_ = 0;
        block_end_ = std::max(inner_->read(block_, block_size), 0);
    }
    return block_at_ < block_end_;
}

// Brings what is left of the block to its front, and more behind it.
bool decode_channel::fill(int count) {
    if (!in_blocks_ || pushed_back() || count > block_size)
        return false;
    const int left = block_end_ - block_at_;
    std::memmove(block_, block_ + block_at_, static_cast<size_t>(left));
    block_at_ = 0;
    block_end_ = left;
    while (block_end_ < count) {
        const int got = inner_->read(block_ + block_end_, block_size - block_end_);
        if (got < 1)
            return false;
        block_end_ += got;
    }
    return true;
}

int decode_channel::read() {
    if (has_block()) {
        ++bytes_read_;
        return block_[block_at_++];
    }
    const int byte = in_blocks_ && !pushed_back() ? -1 : pushback_input_channel::read();
    bytes_read_ += byte >= 0;
    return byte;
}

int decode_channel::read(unsigned char* buffer, int length) {
    if (length < 1)
        return 0;
    if (in_blocks_ && !pushed_back()) {
        if (!has_block())
            return -1;
        const int some = std::min(length, block_end_ - block_at_);
        std::memcpy(buffer, block_ + block_at_, static_cast<size_t>(some));
        block_at_ += some;
        bytes_read_ += some;
        return some;
    }
    const int got = pushback_input_channel::read(buffer, length);
    bytes_read_ += got > 0 ? got : 0;
    return got;
}

long decode_channel::ignore(long count) {
    if (!in_blocks_)
        return pushback_input_channel::ignore(count);
    long gone = 0;
    while (gone < count && read() >= 0)
        ++gone;
    return gone;
}

bool decode_channel::read_buffer(unsigned char* bytes, int count) {
    for (int have = 0; have < count;) {
        const int got = read(bytes + have, count - have);
        if (got < 1) {
            error_ = short_read;
            return false;
        }
        have += got;
    }
    return true;
}

void decode_channel::read_bytes(unsigned char* bytes, int count) { read_buffer(bytes, count); }

// What does not come stands as ones.
std::uint32_t decode_channel::read_number(int count) {
    unsigned char bytes[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    const unsigned char* from = bytes;
    if (block_end_ - block_at_ >= count && !pushed_back()) {
        from = block_ + block_at_;
        block_at_ += count;
        bytes_read_ += count;
    } else {
        read_buffer(bytes, count);
    }
    std::uint32_t bits = 0;
    for (int i = 0; i < count; ++i)
        bits = (bits << 8) | from[i];
    return bits;
}

short decode_channel::read_short() { return static_cast<short>(read_number(2)); }

std::int32_t decode_channel::read_integer() { return static_cast<std::int32_t>(read_number(4)); }

long decode_channel::read_long() {
    read_integer();
    return read_integer();
}

int decode_channel::read_string(ustring& text) { return text.readUTF(*this); }

char* decode_channel::read_string(char* buffer, int size) {
    const int length = read_short();
    if (length < 0 || length > size - 1)
        return nullptr;
    std::memset(buffer, 0, static_cast<size_t>(length) + 1);
    read_buffer(reinterpret_cast<unsigned char*>(buffer), length);
    return buffer;
}

float decode_channel::read_float() {
    float value = 0;
    unsigned char bytes[4] = {0, 0, 0, 0};
    read_buffer(bytes, 4);
    // Free-space arithmetic of the tables counts a float twice.
    bytes_read_ += 4;
    std::memcpy(&value, bytes, 4);
    return value;
}

void decode_channel::read_bulk_string(const pathname& path) {
    KM_TRACE_FUNCTION("decode_channel::read_bulk_string");
    const ustring marker(bulk_string_marker);
    FILE* out = std::fopen(path.mbcs_str(), "we");
    std::int32_t lines = 0;
    bool good = true;
    for (ustring line; (good = read_string(line)) && !(line == marker); ++lines)
        if (out && std::fprintf(out, "%s\n", line.mbcs_str()) < 0)
            error_ = short_read;
    if (out && std::fclose(out) != 0)
        error_ = short_read;
    if (!good || read_integer() != lines || error_)
        error_ = short_read;
}

} // namespace km
