// ioch_channel: channel over a handle of the runtime's IO service
#pragma once

#include "channel.h"

namespace km {

struct ioch_handle;

// Reads memory or a descriptor through a handle of its own. Errors: 2 if the handle could not be
// made, 11 after a failed read; then every read gives -1.
class ioch_input_channel : public input_channel {
  public:
    // Over bytes that are lent for the life of the channel.
    ioch_input_channel(char* data, long length);
    // The same; with `copy` not 0 the bytes are copied now.
    ioch_input_channel(char* data, long length, int copy);
    // Over a descriptor, which stays the caller's.
    explicit ioch_input_channel(int descriptor);
    ~ioch_input_channel() override;
    ioch_input_channel(const ioch_input_channel&) = delete;
    ioch_input_channel& operator=(const ioch_input_channel&) = delete;
    int read() override;
    // Short only at the end of the data. A failure in the middle gives -1.
    int read(unsigned char* buffer, int length) override;
    // Less than `count` at the end; -1 on a failure.
    long ignore(long count) override;
    // Gives the handle back; reads give -1 from now on.
    void close() override;
    int get_error() override { return error_; }

  private:
    explicit ioch_input_channel(ioch_handle* handle);
    int refill();
    int take(unsigned char* buffer, int length);
    void drop_block();

    ioch_handle* channel_;
    int error_ = 0;
    // The block received last: the service decides how large it is, not the reader of the channel.
    char* block_ = nullptr;
    int count_ = 0;
    int position_ = 0;
};

} // namespace km
