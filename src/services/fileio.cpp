// fileio: an open descriptor with a sticky error state
// no format
// invariant: after a failure no system call is made but by close and tell
#include "fileio.h"

#include "durable.h"
#include "trclog.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

void file_handle::latch(state to, int error) {
    state_ = to;
    system_error_ = static_cast<short>(error);
}

int file_handle::fail(state to, const char* what) {
    const int error = errno;
    latch(to, error);
    KM_TRACE(trace_info, "common", "failure %sfile %s, errno=%d", what, path_.mbcs_str(), error);
    return 0;
}

file_handle::file_handle(int descriptor, int flags) : descriptor_(descriptor), flags_(flags) {}

file_handle::file_handle(const pathname& path) { default_open(path); }

file_handle::file_handle(const pathname& path, int flags) { open(path, flags); }

file_handle::file_handle(const file_handle& other) { take(other, "opening hash"); }

file_handle& file_handle::operator=(const file_handle& other) {
    if (this == &other)
        return *this;
    close();
    if (state_ == good)
        take(other, "duplicating ");
    return *this;
}

// Fields of the other and a duplicate of its descriptor; this handle is closed and good.
void file_handle::take(const file_handle& other, const char* what) {
    state_ = other.state_;
    path_ = other.path_;
    system_error_ = other.system_error_;
    bytes_read_ = other.bytes_read_;
    bytes_written_ = other.bytes_written_;
    flags_ = other.flags_;
    synchronise_ = other.synchronise_;
    if (other.descriptor_ < 0)
        return;
    descriptor_ = ::fcntl(other.descriptor_, F_DUPFD_CLOEXEC, 0);
    if (descriptor_ < 0)
        fail(open_failed, what);
}

file_handle::~file_handle() {
    if (descriptor_ > 2)
        ::close(descriptor_);
}

int file_handle::open(const pathname& path, int flags) {
    if (state_ != good)
        return 0;
    if (descriptor_ >= 0)
        return 1;
    path_ = path;
    flags_ = flags;
    descriptor_ = ::open(path.mbcs_str(), flags | O_CLOEXEC, 0600);
    if (descriptor_ < 0)
        fail(open_failed, "opening ");
    return 1;
}

int file_handle::default_open(const pathname& path) { return open(path, O_RDWR | O_CREAT); }

int file_handle::close() {
    if (descriptor_ < 0)
        return 1;
    const int done = ::close(descriptor_);
    descriptor_ = -1;
    if (done == 0)
        return 1;
    const int error = errno;
    latch(close_failed, error);
    KM_TRACE(trace_info, "common", "failure closing file %s errno %d", path_.mbcs_str(), error);
    return 0;
}

int file_handle::seek(long offset, int whence) {
    if (state_ != good)
        return 0;
    return ::lseek(descriptor_, offset, whence) >= 0 ? 1 : fail(seek_failed, "seeking ");
}

int file_handle::start() { return seek(0, SEEK_SET); }
int file_handle::end() { return seek(0, SEEK_END); }
int file_handle::move_from_start(long offset) { return seek(offset, SEEK_SET); }
int file_handle::move_from_end(long offset) { return seek(offset, SEEK_END); }
int file_handle::move_from_current(long offset) { return seek(offset, SEEK_CUR); }

long file_handle::tell() {
    const off_t at = ::lseek(descriptor_, 0, SEEK_CUR);
    if (at < 0)
        fail(seek_failed, "seeking ");
    return at;
}

int file_handle::read(char* buffer, unsigned long n) {
    if (state_ != good)
        return 0;
    bytes_read_ = 0;
    if (!buffer) {
        state_ = null_buffer;
        return 0;
    }
    while (bytes_read_ < n) {
        const ssize_t got = ::read(descriptor_, buffer + bytes_read_, n - bytes_read_);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return fail(read_failed, "reading ");
        if (got == 0)
            break;
        bytes_read_ += static_cast<unsigned long>(got);
    }
    return 1;
}

int file_handle::write(const char* buffer, unsigned long n) {
    if (state_ != good)
        return 0;
    bytes_written_ = 0;
    if (!buffer) {
        state_ = null_buffer;
        return 0;
    }
    while (bytes_written_ < n) {
        const ssize_t put = ::write(descriptor_, buffer + bytes_written_, n - bytes_written_);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return fail(write_failed, "writing in ");
        bytes_written_ += static_cast<unsigned long>(put);
    }
    return 1;
}

int file_handle::chsize(long size) {
    if (state_ != good)
        return 0;
    if (::ftruncate(descriptor_, size) == 0)
        return 1;
    const int error = errno;
    latch(write_failed, error);
    KM_TRACE(trace_info, "common", "failure changing size for file %s, new size=%ld, errno=%d",
             path_.mbcs_str(), size, error);
    return 0;
}

long file_handle::filelength() {
    if (state_ != good)
        return 0;
    struct stat about {};
    const int got =
        descriptor_ < 0 ? ::stat(path_.mbcs_str(), &about) : ::fstat(descriptor_, &about);
    if (got == 0)
        return static_cast<long>(about.st_size);
    const int error = errno;
    latch(read_failed, error);
    KM_TRACE(trace_info, "common", "failure reading file length, file %s, errno=%d",
             path_.mbcs_str(), error);
    return -1;
}

int file_handle::flush() {
    if (state_ != good)
        return 0;
    if (!synchronise_)
        return 1;
    return sync_descriptor(descriptor_) ? 1 : fail(write_failed, "writing in ");
}

int file_handle::eof() { return tell() < filelength() ? 0 : 1; }

} // namespace km
