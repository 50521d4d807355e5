// istream_reader: characters out of a channel of bytes
// no format
// invariant: position <= count <= 8192; a buffer never ends between the two units of a character
#include "istream_reader.h"

#include "base/uxl.h"
#include "engine_exit.h"
#include "trclog.h"

#include <algorithm>

namespace km {

istream_reader::istream_reader(input_channel* channel, int owns)
    : channel_(channel), buffer_(new char16_t[buffer_size]), owns_(owns) {}

istream_reader::~istream_reader() { istream_reader::close(); }

void istream_reader::close() {
    if (channel_ && owns_)
        channel_->close();
    channel_ = nullptr;
    count_ = position_ = 0;
    held_[0] = 0;
}

int istream_reader::read(char16_t* buffer, int offset, int length) {
    int got = 0;
    while (got < length) {
        if (position_ == count_ && fill_buffer() < 1)
            break;
        const int part = std::min(length - got, count_ - position_);
        std::copy_n(buffer_.get() + position_, part, buffer + offset + got);
        position_ += part;
        got += part;
    }
    return got ? got : -1;
}

int istream_reader::fill_buffer() {
    count_ = position_ = 0;
    char16_t units[2] = {held_[0], held_[1]};
    bool more = held_[0] || next_character(units);
    held_[0] = 0;
    for (; more; more = count_ < buffer_size && next_character(units)) {
        if (units[1] && count_ + 1 == buffer_size) {
            std::copy_n(units, 2, held_);
            break;
        }
        buffer_[count_++] = units[0];
        if (units[1])
            buffer_[count_++] = units[1];
    }
    return count_ ? count_ : -1;
}

// False at the end of the channel.
bool istream_reader::next_character(char16_t units[2]) {
    char bytes[32];
    const int most = std::min(uxl_max_bytes(0), static_cast<int>(sizeof bytes));
    for (int have = 0; channel_;) {
        const int byte = channel_->read();
        if (byte < 0 && have == 0)
            break;
        if (byte < 0)
            wrong_encoding(have);
        bytes[have++] = static_cast<char>(byte);
        const int used = uxl_mbtowc(0, units, bytes, static_cast<size_t>(have));
        if (used >= 0) // 0 is the character NUL
            return true;
        if (used == -1 || have == most)
            wrong_encoding(have);
    }
    return false;
}

void istream_reader::wrong_encoding(int bytes) {
    KM_TRACE(trace_fatal, "common",
             "text is not in the encoding of the locale: %d byte(s) make no"
             " character, error of the channel: %d",
             bytes, channel_->get_error());
    engine_exit(-1, "text in the wrong encoding");
}

} // namespace km
