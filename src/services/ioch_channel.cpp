// ioch_channel: channel over a handle of the runtime's IO service
// no format
// invariant: a block is freed once its last byte has been handed out
#include "ioch_channel.h"

#include "base/ioch.h"
#include "base/mem.h"

#include <algorithm>
#include <cstring>

namespace km {

ioch_input_channel::ioch_input_channel(ioch_handle* handle)
    : channel_(handle), error_(handle ? channel_good : channel_no_memory) {}

ioch_input_channel::ioch_input_channel(char* data, long length)
    : ioch_input_channel(ioch_mdata_init(data, length)) {}

ioch_input_channel::ioch_input_channel(char* data, long length, int copy)
    : ioch_input_channel(ioch_data_init(data, length, copy)) {}

ioch_input_channel::ioch_input_channel(int descriptor)
    : ioch_input_channel(ioch_fd_init(descriptor)) {}

ioch_input_channel::~ioch_input_channel() { ioch_input_channel::close(); }

void ioch_input_channel::close() {
    drop_block();
    ioch_dispose(channel_);
    channel_ = nullptr;
}

void ioch_input_channel::drop_block() {
    if (block_)
        mg_free(block_);
    block_ = nullptr;
    count_ = position_ = 0;
}

// 1 with bytes in the block, 0 at the end, -1 on a failure.
int ioch_input_channel::refill() {
    if (error_)
        return -1;
    if (position_ < count_)
        return 1;
    if (!channel_)
        return 0;
    drop_block();
    const int got = ioch_recv(channel_, &block_);
    if (got < 0) {
        error_ = channel_fatal_read;
        return -1;
    }
    count_ = got;
    return got > 0;
}

int ioch_input_channel::take(unsigned char* buffer, int length) {
    const int got = std::min(length, count_ - position_);
    std::memcpy(buffer, block_ + position_, static_cast<size_t>(got));
    position_ += got;
    if (position_ == count_)
        drop_block();
    return got;
}

int ioch_input_channel::read() {
    unsigned char byte = 0;
    return read(&byte, 1) == 1 ? byte : -1;
}

int ioch_input_channel::read(unsigned char* buffer, int length) {
    if (length < 1)
        return error_ ? -1 : 0;
    int got = 0;
    while (got < length) {
        const int more = refill();
        if (more < 0)
            return -1;
        if (more == 0)
            break;
        got += take(buffer + got, length - got);
    }
    return got ? got : -1;
}

long ioch_input_channel::ignore(long count) {
    if (error_)
        return -1;
    const long own = std::clamp(count, 0L, static_cast<long>(count_ - position_));
    position_ += static_cast<int>(own);
    if (position_ == count_)
        drop_block();
    if (own >= count || !channel_)
        return own;
    const long rest = ioch_skip(channel_, count - own);
    if (rest < 0)
        error_ = channel_fatal_read;
    return rest < 0 ? -1 : own + rest;
}

} // namespace km
