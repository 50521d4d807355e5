// lockfile: lock among processes on a file
// format: docs/formats/lock-file.md
// invariant: who holds a lock holds it on the file that its name stands for
#include "lockfile.h"

#include "base_configuration.h"
#include "trclog.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

namespace {

struct flock whole_file(short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

// Another process may have removed the file between opening and locking: then the lock guards
// nothing, and a third could lock a new file of that name.
bool name_stands_for(const char* name, int handle) {
    struct stat by_name {
    }, by_handle{};
    return ::stat(name, &by_name) == 0 && ::fstat(handle, &by_handle) == 0 &&
           by_name.st_dev == by_handle.st_dev && by_name.st_ino == by_handle.st_ino;
}

void tell_holder(int handle) {
    char command[256] = "", line[384];
    const int self = ::open("/proc/self/comm", O_RDONLY | O_CLOEXEC);
    if (self >= 0) {
        const ssize_t got = ::read(self, command, sizeof command - 1);
        command[got > 0 ? got : 0] = 0;
        command[std::strcspn(command, "\n")] = 0;
        ::close(self);
    }
    const int size = std::snprintf(line, sizeof line, "%ld %ld %s\n", static_cast<long>(::getpid()),
                                   static_cast<long>(::time(nullptr)), command);
    // The line is a courtesy: a full disk must not cost the lock.
    if (::ftruncate(handle, 0) == 0 && ::pwrite(handle, line, static_cast<size_t>(size), 0) < 0)
        return;
}

} // namespace

int Lock(file& lock_file, int& handle) {
    for (;;) {
        const char* name = lock_file.get_path().mbcs_str();
        handle = ::open(name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (handle < 0)
            return errno;
        struct flock lock = whole_file(F_WRLCK);
        if (::fcntl(handle, F_OFD_SETLK, &lock) != 0) {
            const int error = errno;
            ::close(handle);
            handle = -1;
            return error;
        }
        if (name_stands_for(name, handle)) {
            tell_holder(handle);
            return 0;
        }
        ::close(handle);
    }
}

int UnLock(file& lock_file, int& handle) {
    const int error = ::unlink(lock_file.get_path().mbcs_str()) == 0 ? 0 : errno;
    ::close(handle);
    handle = -1;
    return error;
}

int IsLocked(file& lock_file) {
    const int handle = ::open(lock_file.get_path().mbcs_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (handle < 0)
        return errno != ENOENT;
    struct flock lock = whole_file(F_WRLCK);
    const int held = ::fcntl(handle, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
    ::close(handle);
    return held;
}

void SemSleep(long seconds) {
    timespec rest{seconds, 0};
    while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

void semaphore::prepare(const pathname& lock_file) {
    static constexpr const char* km_function_name = "semaphore::semaphore";
    lock_file_.set_path(lock_file);
    const pathname parent = lock_file.get_parent();
    if (parent.is_valid())
        file(parent).mk_tree();
    KM_TRACE(trace_info, "common", "Creating semaphore '%s'", name_.mbcs_str());
    KM_TRACE(trace_info, "common", "Lock file is '%s'", lock_file.mbcs_str());
}

semaphore::semaphore(const ustring& name, int flag) : name_(name), flag_(flag) {
    prepare(pathname(base_configuration().get_var(u"working_dir")) + (name + ustring(u".sem")));
}

semaphore::semaphore(const pathname& path, int flag) : name_(path.get_text()), flag_(flag) {
    name_.to_lower();
    pathname lock_file = path.get_parent();
    lock_file += path.get_file() + ustring(u".sem");
    prepare(lock_file);
}

semaphore::~semaphore() {
    KM_TRACE(trace_info, "common", "Destroing semaphore '%s'", name_.mbcs_str());
    signal();
}

int semaphore::wait2(long seconds) {
    KM_TRACE_FUNCTION("semaphore::wait2");
    if (handle_ >= 0)
        return acquired;
    if (seconds == -1)
        seconds = 3600;
    for (;;) {
        while (seconds > 0 && IsLocked(lock_file_)) {
            SemSleep(1);
            if (--seconds == 0)
                return timed_out;
        }
        const int error = Lock(lock_file_, handle_);
        if (error == 0)
            return acquired;
        KM_TRACE(trace_warning, "common", "File '%s' cannot be Locked. errno is %d: %s",
                 lock_file_.get_path().mbcs_str(), error, std::strerror(error));
        // EAGAIN tells of a holder, also if it has gone since.
        if (error != EAGAIN && !(error == EACCES && IsLocked(lock_file_))) {
            KM_TRACE(trace_error, "common",
                     "File '%s' cannot be Locked because already locked errno is %d: %s",
                     lock_file_.get_path().mbcs_str(), error, std::strerror(error));
            return failed;
        }
        if (seconds <= 0)
            return timed_out;
    }
}

int semaphore::signal() {
    if (handle_ < 0)
        return 1;
    const int error = UnLock(lock_file_, handle_);
    if (error == 0)
        return 1;
    KM_TRACE(trace_error, "common", "File '%s' cannot be un-Locked. errno is %d",
             lock_file_.get_path().mbcs_str(), error);
    return 0;
}

int semaphore::_IsLocked() { return IsLocked(lock_file_); }

} // namespace km
