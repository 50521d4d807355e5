// translate_channel: UTF-8 into the code page of the locale
// no format
// invariant: a character is converted whole; what is left over stands at the start of the input
#include "translate_channel.h"

#include "base/uxl.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace km {

namespace {
constexpr int in_size = 4096;
// No code page needs more than six bytes for one of UTF-8, so the output never fills up.
constexpr int out_size = 6 * in_size;
} // namespace

translate_input_channel::translate_input_channel(input_channel* inner)
    : in_buffer_(new (std::nothrow) char[in_size]), out_buffer_(new (std::nothrow) char[out_size]),
      inner_(inner) {
    if (!inner_ || !in_buffer_ || !out_buffer_)
        error_ = channel_no_inner;
}

int translate_input_channel::get_error() {
    return error_ || !inner_ ? error_ : inner_->get_error();
}

void translate_input_channel::convert() {
    const char* in = in_buffer_.get();
    char* out = out_buffer_.get();
    size_t in_left = static_cast<size_t>(in_count_), out_left = out_size;
    uxl_from_utf8_r(0, &in, &in_left, &out, &out_left);
    std::memmove(in_buffer_.get(), in, in_left);
    in_count_ = static_cast<int>(in_left);
    out_count_ = out_size - static_cast<int>(out_left);
}

// 1 with bytes ready, 0 if the inner channel has none for now, -1 at the end or on a failure.
int translate_input_channel::convert_next() {
    out_position_ = out_count_ = 0;
    while (out_count_ == 0) {
        const int got = inner_->read(reinterpret_cast<unsigned char*>(in_buffer_.get()) + in_count_,
                                     in_size - in_count_);
        if (got == 0)
            return 0;
        if (got > 0) {
            in_count_ += got;
            convert();
            continue;
        }
        error_ = inner_->get_error();
        if (error_ || in_count_ == 0)
            return -1;
        out_count_ = std::exchange(in_count_, 0);
        std::copy_n(in_buffer_.get(), out_count_, out_buffer_.get());
    }
    return 1;
}

int translate_input_channel::read(unsigned char* buffer, int length) {
    if (error_)
        return -1;
    if (length < 1)
        return 0;
    if (out_position_ == out_count_) {
        const int ready = convert_next();
        if (ready < 1)
            return ready;
    }
    const int got = std::min(length, out_count_ - out_position_);
    std::memcpy(buffer, out_buffer_.get() + out_position_, static_cast<size_t>(got));
    out_position_ += got;
    return got;
}

} // namespace km
