// filter_channel: channels on channels: buffer, push-back
// no format
// invariant: bytes leave a filter in the order in which they came in
#include "filter_channel.h"

#include "engine_exit.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace km {

filter_input_channel::~filter_input_channel() {
    if (inner_ && inner_->is_to_be_deleted()) {
        inner_->close();
        delete inner_;
    }
}

void filter_input_channel::close() {
    if (inner_ && inner_->is_to_be_deleted())
        inner_->close();
}

void filter_output_channel::close() {
    flush();
    inner_->close();
}

buffered_input_channel::buffered_input_channel(input_channel* inner, int size)
    : filter_input_channel(inner), buffer_(new unsigned char[static_cast<unsigned>(size)]),
      size_(size) {}

bool buffered_input_channel::refill() {
    if (position_ < count_)
        return true;
    position_ = 0;
    count_ = std::max(inner_->read(buffer_.get(), size_), 0);
    return count_ > 0;
}

int buffered_input_channel::read() { return refill() ? buffer_[position_++] : -1; }

int buffered_input_channel::read(unsigned char* buffer, int length) {
    if (length < 1)
        return 0;
    if (!refill())
        return -1;
    const int got = std::min(length, count_ - position_);
    std::memcpy(buffer, buffer_.get() + position_, static_cast<size_t>(got));
    position_ += got;
    return got;
}

long buffered_input_channel::ignore(long count) {
    if (count < 0)
        return 0;
    const long held = count_ - position_;
    if (count <= held) {
        position_ += static_cast<int>(count);
        return count;
    }
    position_ = count_ = 0;
    const long rest = inner_->ignore(count - held);
    return rest < 0 ? rest : held + rest;
}

buffered_output_channel::buffered_output_channel(output_channel* inner, int size)
    : filter_output_channel(inner), buffer_(new unsigned char[static_cast<unsigned>(size)]),
      size_(size) {}

buffered_output_channel::~buffered_output_channel() {
    buffered_output_channel::flush();
    inner_->close();
}

void buffered_output_channel::write(int byte) {
    if (count_ == size_)
        flush();
    buffer_[count_++] = static_cast<unsigned char>(byte);
}

void buffered_output_channel::write(const unsigned char* buffer, int length) {
    if (size_ - count_ < length) {
        flush();
        inner_->write(buffer, length);
        return;
    }
    std::memcpy(buffer_.get() + count_, buffer, static_cast<size_t>(std::max(length, 0)));
    count_ += std::max(length, 0);
}

void buffered_output_channel::flush() {
    inner_->write(buffer_.get(), count_);
    inner_->flush();
    count_ = 0;
}

pushback_input_channel::pushback_input_channel(input_channel* inner, int size)
    : filter_input_channel(inner),
      buffer_(new (std::nothrow) unsigned char[static_cast<unsigned>(size)]), size_(size),
      position_(size) {
    if (!buffer_)
        engine_exit(1, "no memory for a push-back buffer");
}

int pushback_input_channel::read() {
    return position_ < size_ ? buffer_[position_++] : inner_->read();
}

int pushback_input_channel::read(unsigned char* buffer, int length) {
    if (length < 1)
        return 0;
    if (position_ == size_)
        return inner_->read(buffer, length);
    const int got = std::min(length, size_ - position_);
    std::memcpy(buffer, buffer_.get() + position_, static_cast<size_t>(got));
    position_ += got;
    return got;
}

long pushback_input_channel::ignore(long count) {
    const long own = std::clamp(count, 0L, static_cast<long>(size_ - position_));
    position_ += static_cast<int>(own);
    if (own >= count)
        return own;
    const long rest = inner_->ignore(count - own);
    return rest < 0 ? rest : own + rest;
}

void pushback_input_channel::unread(int byte) {
    if (position_ == 0)
        engine_exit(1, "more bytes pushed back than the channel holds");
    buffer_[--position_] = static_cast<unsigned char>(byte);
}

void pushback_input_channel::unread(const unsigned char* data, int length, int offset) {
    if (length > position_)
        engine_exit(1, "more bytes pushed back than the channel holds");
    position_ -= length;
    std::memcpy(buffer_.get() + position_, data + offset, static_cast<size_t>(length));
}

} // namespace km
