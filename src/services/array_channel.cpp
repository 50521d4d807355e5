// array_channel: channels over memory
// no format
// invariant: the byte behind the content is 0
#include "array_channel.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace km {

int array_input_channel::read(unsigned char* buffer, int length) {
    if (position_ >= size_)
        return -1;
    const long got = std::clamp(size_ - position_, 0L, static_cast<long>(std::max(length, 0)));
    std::memcpy(buffer, data_ + position_, static_cast<size_t>(got));
    position_ += got;
    return static_cast<int>(got);
}

long array_input_channel::ignore(long count) {
    position_ += count;
    return count;
}

array_output_channel::array_output_channel(long size)
    : capacity_(size), data_(new (std::nothrow) unsigned char[static_cast<size_t>(size) + 1]()) {
    if (!data_)
        error_ = channel_no_inner;
}

array_output_channel::~array_output_channel() { delete[] data_; }

bool array_output_channel::grow(long wanted) {
    const long capacity = std::max(wanted, capacity_ * 2);
    auto* bigger = new (std::nothrow) unsigned char[static_cast<size_t>(capacity) + 1]();
    if (!bigger) {
        error_ = channel_no_inner;
        return false;
    }
    std::memcpy(bigger, data_, static_cast<size_t>(count_));
    delete[] data_;
    data_ = bigger;
    capacity_ = capacity;
    return true;
}

void array_output_channel::write(int byte) {
    if (error_ || (capacity_ <= count_ && !grow(count_ + 1)))
        return;
    data_[count_++] = static_cast<unsigned char>(byte);
}

void array_output_channel::write(const unsigned char* buffer, int length) {
    if (error_ || length < 1 || (capacity_ <= count_ + length && !grow(count_ + length)))
        return;
    std::memcpy(data_ + count_, buffer, static_cast<size_t>(length));
    count_ += length;
}

} // namespace km
