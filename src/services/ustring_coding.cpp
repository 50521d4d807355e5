// ustring_coding: coded form of texts
// format: docs/formats/coded-object.md
// invariant: what writeUTF writes, readUTF reads back to the same characters
#include "ustring.h"

#include "channel.h"
#include "codec.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace km {

namespace {

constexpr size_t long_count = 65536;
constexpr size_t block_size = 65536;

void append_utf(std::string& out, char16_t c) {
    if (c >= 1 && c <= 0x7F) {
        out += static_cast<char>(c);
    } else if (c <= 0x7FF) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

bool is_follower(std::string_view bytes, size_t at) {
    return at < bytes.size() && (bytes[at] & 0xC0) == 0x80;
}

// One character at `at`, which moves behind it; false if there is none.
bool take_utf(std::string_view bytes, size_t& at, char16_t& c) {
    const auto lead = static_cast<unsigned char>(bytes[at]);
    if (lead < 0x80) {
        c = lead;
        ++at;
        return true;
    }
    if ((lead & 0xE0) == 0xC0 && is_follower(bytes, at + 1)) {
        c = static_cast<char16_t>(((lead & 0x1F) << 6) | (bytes[at + 1] & 0x3F));
        at += 2;
        return true;
    }
    if ((lead & 0xF0) == 0xE0 && is_follower(bytes, at + 1) && is_follower(bytes, at + 2)) {
        c = static_cast<char16_t>(((lead & 0x0F) << 12) | ((bytes[at + 1] & 0x3F) << 6) |
                                  (bytes[at + 2] & 0x3F));
        at += 3;
        return true;
    }
    return false;
}

// Count of bytes; `first` takes a data byte that was read with it. False at the end of the stream.
bool read_count(input_channel& from, size_t& count, std::string& first) {
    int high = from.read(), low = high < 0 ? -1 : from.read();
    if (low < 0)
        return false;
    count = static_cast<size_t>((high << 8) | low);
    if (count != 0xFFFF)
        return true;
    const int third = from.read();
    if (third < 0)
        return false;
    if (third != 0xFF) {
        first += static_cast<char>(third);
        return true;
    }
    count = 0;
    for (int i = 0; i < 4; ++i) {
        const int byte = from.read();
        if (byte < 0)
            return false;
        count = (count << 8) | static_cast<size_t>(byte);
    }
    return true;
}

// The count is a stranger's word: memory follows what really comes.
bool read_bytes(input_channel& from, size_t count, std::string& bytes) {
    while (bytes.size() < count) {
        const size_t have = bytes.size(), wanted = std::min(count - have, block_size);
        bytes.resize(have + wanted);
        const int got = from.read(reinterpret_cast<unsigned char*>(bytes.data()) + have,
                                  static_cast<int>(wanted));
        if (got < 1)
            return false;
        bytes.resize(have + static_cast<size_t>(got));
    }
    return true;
}

// Nearly all texts are short: no memory is asked for them.
constexpr size_t few = 256;

bool read_few(input_channel& from, unsigned char* block, size_t count) {
    for (size_t have = 0; have < count;) {
        const int got = from.read(block + have, static_cast<int>(count - have));
        if (got < 1)
            return false;
        have += static_cast<size_t>(got);
    }
    return true;
}

// Never more characters than bytes that came. Ends in front of what is no character.
bool take_all(ustring& text, std::string_view bytes) {
    text.reserve(static_cast<ustring::size_type>(bytes.size()));
    char16_t* const units = text.data();
    ustring::size_type count = 0;
    bool whole = true;
    for (size_t at = 0; whole && at < bytes.size();)
        if ((whole = take_utf(bytes, at, units[count])))
            ++count;
    text.eos(count);
    return whole;
}

} // namespace

namespace {
// The form of a short text of nothing but characters of one byte; how many bytes, or 0 where it is
// none.
int put_few(unsigned char* block, const char16_t* units, size_t count) {
    constexpr size_t head = 2;
    bool is_plain = count <= few;
    for (size_t i = 0; is_plain && i < count; ++i) {
        is_plain = units[i] - 1U < 0x7F; // 0 takes two bytes
        block[head + i] = static_cast<unsigned char>(units[i]);
    }
    block[0] = static_cast<unsigned char>(count >> 8);
    block[1] = static_cast<unsigned char>(count);
    return is_plain ? static_cast<int>(head + count) : 0;
}
} // namespace

int ustring::writeUTF(output_channel& to) const {
    constexpr size_t short_head = 2;
    unsigned char block[short_head + few];
    if (const int length = put_few(block, buffer_, length_)) {
        to.write(block, length);
        return 1;
    }
    std::string out(short_head, '\0');
    out.reserve(short_head + length_);
    for (size_type i = 0; i < length_; ++i)
        append_utf(out, buffer_[i]);
    const size_t count = out.size() - short_head;
    if (count < long_count) {
        out[0] = static_cast<char>(count >> 8);
        out[1] = static_cast<char>(count);
    } else {
        std::string head("\xFF\xFF\xFF");
        for (int shift = 24; shift >= 0; shift -= 8)
            head += static_cast<char>(count >> shift);
        out.replace(0, short_head, head);
    }
    to.write(reinterpret_cast<const unsigned char*>(out.data()), static_cast<int>(out.size()));
    return 1;
}

int ustring::readUTF(input_channel& from) {
    size_t count = 0;
    std::string bytes;
    if (!read_count(from, count, bytes))
        return 0;
    eos(0);
    if (count <= few && bytes.empty()) {
        unsigned char block[few];
        return read_few(from, block, count) &&
               take_all(*this, {reinterpret_cast<const char*>(block), count});
    }
    return read_bytes(from, count, bytes) && take_all(*this, bytes);
}

const char* ustring::codable_name() const { return "com.ombrel.sd.cmObjects.ustring"; }

void ustring::encode_object(encoder& to) const { to.encode_string_field(1, *this); }

codable* ustring::decode_object(decoder& from, long) {
    from.decode_string_field(1, *this);
    return this;
}

void ustring::import(importer&) {}
void ustring::export_(exporter&) const {}
long ustring::codable_version() const { return 1; }

} // namespace km

extern "C" km::codable* make_ustring() { return new km::ustring; }
