// base/ioch: blocks of bytes out of memory or a descriptor
//
// A handle belongs to one thread and is the caller's until ioch_dispose(). Memory comes from the
// global pool; running out of it is an answer here, never an exception.
#pragma once

namespace km {

struct ioch_handle;

// Largest block that ioch_recv() hands out.
constexpr int ioch_block_size = 4096;

// Over `length` bytes that the caller lends until the handle is disposed of. Null if the arguments
// make no block of bytes or memory is short.
ioch_handle* ioch_mdata_init(char* data, long length);
// The same; with `copy` not 0 over a copy of the bytes, which need not outlive the call.
ioch_handle* ioch_data_init(char* data, long length, int copy);
// Over an open descriptor, from its current position. It stays the caller's and stays open. Null
// for a negative one.
ioch_handle* ioch_fd_init(int descriptor);

// The next block: its size, and in `block` new memory that the caller frees with mg_free(). 0 at
// the end and -1 on a failure (a null handle, a read error, no memory), both with `block` null.
int ioch_recv(ioch_handle* handle, char** block);
// Passes over up to `count` bytes. How many went, less only at the end; -1 on a failure.
long ioch_skip(ioch_handle* handle, long count);
// Ends the handle. Null is accepted.
void ioch_dispose(ioch_handle* handle);

} // namespace km
