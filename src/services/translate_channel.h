// translate_channel: UTF-8 into the code page of the locale
#pragma once

#include "channel.h"

#include <memory>

namespace km {

// Hands out, in the code page of the locale (base/uxl), what the inner channel holds in UTF-8. For
// block reads only. Bytes that are no UTF-8 pass unchanged, also a character that the end of the
// data cuts: nothing is lost. The inner channel is lent: it is neither closed nor deleted.
class translate_input_channel : public input_channel {
  public:
    // Error 1 if `inner` is null or a buffer could not be had.
    explicit translate_input_channel(input_channel* inner);
    int read() override { return 0; }
    // What is ready, at most `length`; 0 if the inner channel gave 0. -1 at the end and from the
    // first failure of the inner channel on.
    int read(unsigned char* buffer, int length) override;
    long ignore(long) override { return 0; }
    void close() override {}
    int get_error() override;

  private:
    int convert_next();
    void convert();

    std::unique_ptr<char[]> in_buffer_;
    std::unique_ptr<char[]> out_buffer_;
    int in_count_ = 0; // the beginning of a character, left over from the last round
    int out_position_ = 0;
    int out_count_ = 0;
    input_channel* inner_;
    int error_ = 0;
};

} // namespace km
