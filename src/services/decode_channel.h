// decode_channel: bytes to typed values
#pragma once

#include "filter_channel.h"
#include "pathname.h"

#include <cstdint>

namespace km {

// The mirror of encode_channel. A short read sets the error of decoding to 3, and the value is
// built from whatever came; get_error() stays the inner channel's.
class decode_channel : public pushback_input_channel {
  public:
    static constexpr int default_size = 512;
    static constexpr int short_read = 3;
    explicit decode_channel(input_channel* inner, int size = default_size)
        : pushback_input_channel(inner, size) {}
    // The inner channel is read in blocks from now on: for one that ends where the values end, and
    // that nobody reads behind them.
    void read_in_blocks() { in_blocks_ = true; }
    int read() override;
    int read(unsigned char* buffer, int length) override;
    long ignore(long count) override;
    // -1 at the end.
    virtual int read_byte() { return read(); }
    virtual void read_bytes(unsigned char* bytes, int count);
    virtual short read_short();
    virtual std::int32_t read_integer();
    // The low 32 bits, sign-extended.
    virtual long read_long();
    // 1, or 0 if it is no text of this form.
    virtual int read_string(ustring& text);
    // A raw form: a short length, that many bytes, and a NUL is added. Null, with the bytes unread,
    // if the length does not fit.
    virtual char* read_string(char* buffer, int size);
    virtual float read_float();
    virtual void read_bulk_string(const pathname& file);
    int get_decode_error() const { return error_; }
    void set_decode_error(int error) { error_ = error; }
    // The next `count` bytes in a row, which pass() goes over; null where the operations above must
    // serve: not in blocks, bytes pushed back, the end, or more than a block holds.
    const unsigned char* ahead(int count) {
        const unsigned char* at = in_block(count);
        return at || !fill(count) ? at : block_;
    }
    // The same as far as it was read from the inner channel.
    const unsigned char* in_block(int count) const {
        return block_end_ - block_at_ >= count && !pushed_back() ? block_ + block_at_ : nullptr;
    }
    void pass(int count) {
        block_at_ += count;
        bytes_read_ += count;
    }
    int get_bytes_read() const { return bytes_read_; }

  private:
    static constexpr int block_size = 2048;
    bool has_block();
    bool fill(int count);
    bool read_buffer(unsigned char* bytes, int count);
    std::uint32_t read_number(int count);
    int error_ = 0;
    int bytes_read_ = 0;
    bool in_blocks_ = false;
    int block_at_ = 0;
    int block_end_ = 0;
    unsigned char block_[block_size];
};

} // namespace km
