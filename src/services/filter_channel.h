// filter_channel: channels on channels: buffer, push-back
#pragma once

#include "channel.h"

#include <memory>

namespace km {

// Owns its inner channel unless that was inhibited: its end closes and deletes it.
class filter_input_channel : public input_channel {
  public:
    explicit filter_input_channel(input_channel* inner) : inner_(inner) {}
    ~filter_input_channel() override;
    filter_input_channel(const filter_input_channel&) = delete;
    filter_input_channel& operator=(const filter_input_channel&) = delete;
    int read() override { return inner_->read(); }
    int read(unsigned char* buffer, int length) override { return inner_->read(buffer, length); }
    long ignore(long count) override { return inner_->ignore(count); }
    void close() override;
    int get_error() override { return inner_->get_error(); }
    input_channel* get_inner() const { return inner_; }

  protected:
    input_channel* inner_;
};

// Never owns its inner channel, but its close() closes it.
class filter_output_channel : public output_channel {
  public:
    explicit filter_output_channel(output_channel* inner) : inner_(inner) {}
    void write(int byte) override { inner_->write(byte); }
    using output_channel::write;
    void flush() override { inner_->flush(); }
    void close() override;
    int get_error() override { return inner_->get_error(); }

  protected:
    output_channel* inner_;
};

class buffered_input_channel : public filter_input_channel {
  public:
    buffered_input_channel(input_channel* inner, int size);
    int read() override;
    // What is held, at most `length`; never refills twice in a call.
    int read(unsigned char* buffer, int length) override;
    long ignore(long count) override;

  private:
    bool refill();
    std::unique_ptr<unsigned char[]> buffer_;
    int size_;
    int count_ = 0;
    int position_ = 0;
};

// A block that does not fit goes straight to the inner channel, behind what is held. The end
// flushes and closes the inner channel.
class buffered_output_channel : public filter_output_channel {
  public:
    buffered_output_channel(output_channel* inner, int size);
    ~buffered_output_channel() override;
    buffered_output_channel(const buffered_output_channel&) = delete;
    buffered_output_channel& operator=(const buffered_output_channel&) = delete;
    void write(int byte) override;
    void write(const unsigned char* buffer, int length) override;
    // Also with nothing held it reaches the inner channel's flush.
    void flush() override;
    int get_sync_data() override { return inner_->get_sync_data(); }
    void set_sync_data(int value) override { inner_->set_sync_data(value); }

  private:
    std::unique_ptr<unsigned char[]> buffer_;
    int size_;
    int count_ = 0;
};

// Pushing back more than `size` bytes is a programming error and ends the process with status 1.
class pushback_input_channel : public filter_input_channel {
  public:
    pushback_input_channel(input_channel* inner, int size);
    int read() override;
    // Pushed-back bytes alone, if there are any.
    int read(unsigned char* buffer, int length) override;
    // Drops the pushed-back bytes first.
    long ignore(long count) override;
    void unread(int byte);
    // data[offset .. offset + length - 1], which the next read gives in this order.
    void unread(const unsigned char* data, int length, int offset);
    int pushed_back() const { return size_ - position_; }

  private:
    std::unique_ptr<unsigned char[]> buffer_;
    int size_;
    int position_;
};

} // namespace km
