// base/ioch: blocks of bytes out of memory or a descriptor
// no format
// invariant: 0 <= position <= length; a handle without data reads its descriptor
#include "base/ioch.h"

#include "base/mem.h"
#include "base/mrt_exception.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace km {

struct ioch_handle {
    const char* data; // null: the descriptor
    char* copied;     // what `data` points at, if it is the handle's own
    long length;
    long position;
    int descriptor;
};

namespace {

// As mg_malloc, but null where memory is short.
void* pool_memory(size_t size) {
    try {
        return mg_malloc(size);
    } catch (const mrt_exception&) {
        return nullptr;
    }
}

ioch_handle* make_handle(const ioch_handle& content) {
    auto* handle = static_cast<ioch_handle*>(pool_memory(sizeof(ioch_handle)));
    if (handle)
        *handle = content;
    return handle;
}

// Up to `size` bytes of the descriptor; a signal is no failure.
long read_some(int descriptor, char* to, size_t size) {
    ssize_t got = 0;
    do
        got = ::read(descriptor, to, size);
    while (got < 0 && errno == EINTR);
    return got;
}

long descriptor_skip(int descriptor, long count) {
    char block[ioch_block_size];
    long gone = 0;
    while (gone < count) {
        const long wanted = std::min<long>(count - gone, ioch_block_size);
        const long got = read_some(descriptor, block, static_cast<size_t>(wanted));
        if (got < 1)
            return got < 0 ? -1 : gone;
        gone += got;
    }
    return gone;
}

} // namespace

ioch_handle* ioch_mdata_init(char* data, long length) {
    return data && length >= 0 ? make_handle({data, nullptr, length, 0, -1}) : nullptr;
}

ioch_handle* ioch_data_init(char* data, long length, int copy) {
    if (!copy || !data || length < 0)
        return ioch_mdata_init(data, length);
    auto* copied = static_cast<char*>(pool_memory(static_cast<size_t>(length)));
    if (!copied)
        return nullptr;
    std::memcpy(copied, data, static_cast<size_t>(length));
    ioch_handle* handle = make_handle({copied, copied, length, 0, -1});
    if (!handle)
        mg_free(copied);
    return handle;
}

ioch_handle* ioch_fd_init(int descriptor) {
    return descriptor >= 0 ? make_handle({nullptr, nullptr, 0, 0, descriptor}) : nullptr;
}

int ioch_recv(ioch_handle* handle, char** block) {
    *block = nullptr;
    if (!handle)
        return -1;
    char read_block[ioch_block_size];
    const char* from = read_block;
    long got = 0;
    if (handle->data) {
        from = handle->data + handle->position;
        got = std::min<long>(handle->length - handle->position, ioch_block_size);
    } else {
        got = read_some(handle->descriptor, read_block, sizeof read_block);
    }
    if (got < 1)
        return static_cast<int>(got);
    *block = static_cast<char*>(pool_memory(static_cast<size_t>(got)));
    if (!*block)
        return -1;
    std::memcpy(*block, from, static_cast<size_t>(got));
    handle->position += handle->data ? got : 0;
    return static_cast<int>(got);
}

long ioch_skip(ioch_handle* handle, long count) {
    if (!handle)
        return -1;
    if (count < 1)
        return 0;
    if (!handle->data)
        return descriptor_skip(handle->descriptor, count);
    const long gone = std::min(count, handle->length - handle->position);
    handle->position += gone;
    return gone;
}

void ioch_dispose(ioch_handle* handle) {
    if (!handle)
        return;
    if (handle->copied)
        mg_free(handle->copied);
    mg_free(handle);
}

} // namespace km
