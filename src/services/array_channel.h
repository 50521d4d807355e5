// array_channel: channels over memory
#pragma once

#include "channel.h"

namespace km {

// Reads bytes that the caller lends.
class array_input_channel : public input_channel {
  public:
    array_input_channel(const unsigned char* data, int size) : size_(size), data_(data) {}
    int read() override { return position_ < size_ ? data_[position_++] : -1; }
    int read(unsigned char* buffer, int length) override;
    // Without a bound: the next read behind the end gives -1.
    long ignore(long count) override;
    void close() override {}
    int get_error() override { return 0; }
    long get_position() const { return position_; }

  private:
    long position_ = 0;
    long size_;
    const unsigned char* data_;
};

// Grows as it is written to; always one byte longer than its capacity, so that text stays
// terminated. On an allocation failure the error is 1 and data are dropped.
class array_output_channel : public output_channel {
  public:
    explicit array_output_channel(long size);
    ~array_output_channel() override;
    array_output_channel(const array_output_channel&) = delete;
    array_output_channel& operator=(const array_output_channel&) = delete;
    void write(int byte) override;
    void write(const unsigned char* buffer, int length) override;
    int get_error() override { return error_; }
    // The channel's own bytes, valid until the next write.
    const unsigned char* get_data() const { return data_; }
    long get_count() const { return count_; }

  private:
    bool grow(long wanted);
    long count_ = 0;
    long capacity_;
    unsigned char* data_;
    int error_ = 0;
};

} // namespace km
