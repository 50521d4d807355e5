// durable: durable replace, the one place that renames and flushes
// no format
// invariant: the target's name always stands for a whole content
#include "durable.h"

#include "kill_point.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

int write_fully(int descriptor, const char* bytes, unsigned long count) {
    while (count) {
        const ssize_t put = ::write(descriptor, bytes, count);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            errno = put == 0 ? ENOSPC : errno;
            return 0;
        }
        bytes += put;
        count -= static_cast<unsigned long>(put);
    }
    return 1;
}

int sync_descriptor(int descriptor) {
    if (::fsync(descriptor) == 0)
        return 1;
    return errno == EINVAL || errno == ENOTSUP || errno == EROFS;
}

int sync_directory(const pathname& directory) {
    const ustring& text = directory.get_text();
    const int descriptor =
        ::open(text.empty() ? "." : text.mbcs_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return 0;
    const int done = sync_descriptor(descriptor);
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return done;
}

int make_directories_durably(const pathname& directory) {
    const std::string name = directory.mbcs_str();
    struct stat about {};
    if (::stat(name.c_str(), &about) == 0) {
        errno = ENOTDIR;
        return S_ISDIR(about.st_mode);
    }
    const pathname parent = directory.get_parent();
    const bool has_parent = parent.is_valid() && !(parent == directory);
    if (has_parent && !make_directories_durably(parent))
        return 0;
    if (::mkdir(name.c_str(), 0777) != 0 && errno != EEXIST)
        return 0;
    return !has_parent || sync_directory(parent);
}

int rename_file(const char* from, const char* to) { return ::rename(from, to) == 0; }

int rename_durably(const pathname& temporary, const pathname& target, int sync) {
    if (sync) {
        const int descriptor = ::open(temporary.mbcs_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0)
            return 0;
        const int done = sync_descriptor(descriptor);
        const int error = errno;
        ::close(descriptor);
        errno = error;
        if (!done)
            return 0;
    }
    KM_KILL_POINT("durable.before_rename");
    if (!rename_file(temporary.mbcs_str(), target.mbcs_str()))
        return 0;
    KM_KILL_POINT("durable.after_rename");
    return sync_directory(target.get_parent());
}

namespace {

std::string real_name(const pathname& target) {
    char* whole = ::realpath(target.mbcs_str(), nullptr);
    std::string name = whole ? whole : target.mbcs_str();
    std::free(whole);
    return name;
}

// Gives the new file what the old one had; a missing right to give it away is no failure, but then
// the bits that lend the owner's rights stay off.
void keep_owner_and_mode(int descriptor, const std::string& old_name) {
    struct stat about {};
    if (::stat(old_name.c_str(), &about) != 0)
        return;
    const bool given = ::fchown(descriptor, about.st_uid, about.st_gid) == 0;
    ::fchmod(descriptor, about.st_mode & (given ? 07777 : 0777));
}

} // namespace

int replace_durably(const pathname& target, unsigned mode, const content_writer& write) {
    const std::string name = real_name(target);
    const std::string temporary = name + ".km~" + std::to_string(::getpid());
    // What stands there is a crash's or a stranger's: its inode is not written to.
    ::unlink(temporary.c_str());
    const int descriptor = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor < 0)
        return 0;
    KM_KILL_POINT("durable.before_write");
    keep_owner_and_mode(descriptor, name);
    int done = write(descriptor) && sync_descriptor(descriptor);
    int error = errno;
    if (::close(descriptor) != 0 && done) {
        done = 0;
        error = errno;
    }
    errno = error;
    if (done && rename_durably(pathname(temporary.c_str()), pathname(name.c_str()), 0))
        return 1;
    error = errno;
    ::unlink(temporary.c_str());
    errno = error;
    return 0;
}

} // namespace km
