// stream_channel: frame of the stream on which a package arrives
// no format
// invariant: no byte is dropped without being read in order
#include "stream_channel.h"

#include <algorithm>
#include <memory>
#include <new>

namespace km {

namespace {
constexpr long skip_block = 65536;
}

int net_stream_input_channel::read() {
    unsigned char byte = 0;
    return read(&byte, 1) == 1 ? byte : -1;
}

long net_stream_input_channel::ignore(long count) {
    if (count < 1)
        return 0;
    const long size = std::min(count, skip_block);
    const std::unique_ptr<unsigned char[]> block(
        new (std::nothrow) unsigned char[static_cast<size_t>(size)]);
    if (!block) {
        error_ = channel_no_memory;
        return -1;
    }
    long gone = 0;
    while (gone < count) {
        const int got = read(block.get(), static_cast<int>(std::min(count - gone, size)));
        if (got < 1)
            return got < 0 && gone == 0 ? -1 : gone;
        gone += got;
    }
    return gone;
}

} // namespace km
