// file_channel: channels over files
// no format
// invariant: after a failure every read gives -1
#include "file_channel.h"

#include <fcntl.h>

namespace km {

file_input_channel::file_input_channel(const char* path) : file_input_channel(pathname(path)) {}

file_input_channel::file_input_channel(const ustring& path) : file_input_channel(pathname(path)) {}

file_input_channel::file_input_channel(const pathname& path)
    : handle_(path, O_RDONLY), error_(handle_.get_state()) {}

file_input_channel::file_input_channel(const pathname& path, long offset)
    : file_input_channel(path) {
    if (!error_ && !handle_.move_from_start(offset))
        error_ = handle_.get_state();
}

int file_input_channel::read() {
    unsigned char byte = 0;
    return read(&byte, 1) == 1 ? byte : -1;
}

int file_input_channel::read(unsigned char* buffer, int length) {
    if (error_)
        return -1;
    if (!handle_.read(reinterpret_cast<char*>(buffer), static_cast<unsigned long>(length))) {
        error_ = handle_.get_state();
        return -1;
    }
    const int got = static_cast<int>(handle_.get_bytes_read());
    return got || length == 0 ? got : -1;
}

long file_input_channel::ignore(long count) {
    if (error_)
        return -1;
    handle_.move_from_current(count);
    return count;
}

file_output_channel::file_output_channel(const pathname& path, int append) {
    init(path, append, !append);
}

int file_output_channel::init(const pathname& path, int append, int create) {
    handle_.open(path, O_WRONLY | (create ? O_CREAT : 0) | (append ? O_APPEND : O_TRUNC));
    error_ = handle_.get_state();
    is_flushed_ = false;
    return error_ == 0;
}

void file_output_channel::latch(int done) {
    if (!done && !error_)
        error_ = handle_.get_state();
}

void file_output_channel::write(int byte) {
    const char one = static_cast<char>(byte);
    is_flushed_ = false;
    if (!error_)
        latch(handle_.write(&one, 1));
}

void file_output_channel::write(const unsigned char* buffer, int length) {
    if (length <= 0)
        return;
    is_flushed_ = false;
    latch(handle_.write(reinterpret_cast<const char*>(buffer), static_cast<unsigned long>(length)));
}

void file_output_channel::flush() {
    if (error_ || is_flushed_ || !handle_.is_open())
        return;
    latch(handle_.flush());
    is_flushed_ = !error_ && handle_.get_sync();
}

void file_output_channel::close() {
    const int descriptor = handle_.get_descriptor();
    if (descriptor == 1 || descriptor == 2)
        flush();
    else
        latch(handle_.close());
}

} // namespace km
