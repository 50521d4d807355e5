// text_target: the file in which a text stands, behind all links, and its replacement
// no format
// invariants: the old or the new bytes stand whole, with the rights of the old; no path leaves the
// target root
#include "text_target.h"

#include "durable.h"
#include "km_object.h"
#include "target_root.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace km {

namespace {

bool passes(int error) {
    return error == ENOSPC || error == EDQUOT || error == EBUSY || error == ETXTBSY ||
           error == EAGAIN || error == EMFILE || error == ENFILE;
}

text_fault fault_of(const char* what, const std::string& path, int error) {
    return {what, path, error, {}, passes(error)};
}

text_fault refusal(const std::string& path, const char* reason, bool passing = false) {
    return {nullptr, path, 0, reason, passing};
}

bool is_missing(int error) { return error == ENOENT || error == ENOTDIR; }

// How a link is read on: its text from the root, or behind the directory that holds it. The kernel
// resolves what comes of it.
std::string behind_link(const std::string& link, const std::string& text) {
    return text[0] == '/' ? text : link.substr(0, link.find_last_of('/') + 1) + text;
}

constexpr char access_list[] = "system.posix_acl_access";

} // namespace

text_target::~text_target() {
    if (file_ >= 0)
        ::close(file_);
}

text_fault text_target::find(const std::string& path) {
    constexpr int most_links = 40;
    path_ = path;
    for (int links = 0; links <= most_links; ++links) {
        if (!look_at(path_, about_))
            return is_missing(errno) ? text_fault{} : fault_of("reach", path_, errno);
        std::string text;
        if (!S_ISLNK(about_.st_mode)) {
            there_ = true;
            return {};
        }
        if (!read_link(path_, text))
            return fault_of("read the link", path_, errno);
        path_ = behind_link(path_, text);
    }
    return fault_of("reach", path, ELOOP);
}

text_fault text_target::read(text_bytes& out) {
    std::string all;
    std::vector<char> block(65536);
    for (;;) {
        const ssize_t got = ::read(file_, block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return fault_of("read", path_, errno);
        if (got == 0)
            break;
        if (std::memchr(block.data(), '\0', static_cast<size_t>(got)))
            return refusal(path_, "it holds a NUL, and is no text");
        all.append(block.data(), static_cast<size_t>(got));
        if (all.size() > static_cast<size_t>(longest))
            return refusal(path_, "it is larger than 64 MiB");
    }
    out = text_bytes(std::move(all));
    return {};
}

text_fault text_target::open(const std::string& path, text_bytes& out) {
    if (const auto fault = find(path); fault || !there_)
        return fault;
    if (!S_ISREG(about_.st_mode))
        return refusal(path_, S_ISDIR(about_.st_mode) ? "it is a directory" : "it is no file");
    if (about_.st_size > longest)
        return refusal(path_, "it is larger than 64 MiB");
    file_ = open_for_reading(path_);
    // From here on it is the opened file that counts.
    if (file_ < 0 || ::fstat(file_, &about_) != 0)
        return fault_of("read", path_, errno);
    if (!S_ISREG(about_.st_mode))
        return refusal(path_, "it is no file");
    return read(out);
}

text_fault text_target::lock() {
    constexpr char held[] = "another program holds a lock on it";
    if (file_ < 0)
        return {};
    if (::flock(file_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return refusal(path_, held, true);
    struct flock record {};
    record.l_type = F_WRLCK;
    record.l_whence = SEEK_SET;
    if (::fcntl(file_, F_GETLK, &record) == 0 && record.l_type != F_UNLCK)
        return refusal(path_, held, true);
    return {};
}

text_fault text_target::may_write() const {
    const place where = locate(path_);
    if (!where.found())
        return fault_of("reach", where.parent.empty() ? path_ : where.parent, where.error);
    if (!may_write_in(where))
        return fault_of("write in", where.parent, errno);
    if (there_ && !is_privileged() && about_.st_uid != ::geteuid())
        return refusal(path_, "it belongs to another user, and could not be given back");
    return {};
}

bool text_target::is_changed() const {
    struct stat now {};
    if (!look_at(path_, now))
        return there_ || !is_missing(errno);
    return !there_ || now.st_dev != about_.st_dev || now.st_ino != about_.st_ino ||
           now.st_size != about_.st_size || now.st_mtim.tv_sec != about_.st_mtim.tv_sec ||
           now.st_mtim.tv_nsec != about_.st_mtim.tv_nsec;
}

// What the system keeps for itself is not ours to copy; what it refuses of it is no failure.
text_fault text_target::copy_extended(int out, const std::string& shown) const {
    std::vector<char> names(65536), value(65536);
    const ssize_t length = ::flistxattr(file_, names.data(), names.size());
    if (length < 0)
        return errno == ENOTSUP ? text_fault{} : fault_of("read the attributes of", path_, errno);
    for (ssize_t at = 0; at < length;) {
        const std::string name = names.data() + at;
        at += static_cast<ssize_t>(name.size()) + 1;
        const ssize_t size = ::fgetxattr(file_, name.c_str(), value.data(), value.size());
        if (size >= 0 &&
            ::fsetxattr(out, name.c_str(), value.data(), static_cast<size_t>(size), 0) == 0)
            continue;
        const bool of_system =
            name.compare(0, 9, "security.") == 0 || name.compare(0, 8, "trusted.") == 0;
        if (!of_system && errno != ENODATA)
            return fault_of("keep the attributes of", shown, errno);
    }
    return {};
}

// Owner first: a change of owner takes set-id bits away. A list that the directory gave to the new
// file must not give rights that the old one did not.
text_fault text_target::give_attributes(int out, const std::string& shown) const {
    struct stat is {};
    if (::fstat(out, &is) != 0)
        return fault_of("look at", shown, errno);
    ::fremovexattr(out, access_list);
    if (!there_)
        return ::fchmod(out, 0644) == 0 ? text_fault{} : fault_of("set the mode of", shown, errno);
    if ((is.st_uid != about_.st_uid || is.st_gid != about_.st_gid) &&
        ::fchown(out, about_.st_uid, about_.st_gid) != 0)
        return fault_of("give an owner to", shown, errno);
    if (::fchmod(out, about_.st_mode & 07777) != 0)
        return fault_of("set the mode of", shown, errno);
    return copy_extended(out, shown);
}

text_fault text_target::write(const std::string& bytes, const std::string& temporary) {
    const place where = locate(path_);
    if (!where.found())
        return fault_of("reach", where.parent.empty() ? path_ : where.parent, where.error);
    const std::string shown = where.parent + "/" + temporary;
    const writable_directory lifted(where.directory);
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    ::unlinkat(where.directory, temporary.c_str(), 0);
    const int out = ::openat(where.directory, temporary.c_str(), flags, 0600);
    if (out < 0)
        return fault_of("make", shown, errno);
    text_fault fault;
    if (!write_fully(out, bytes.data(), bytes.size()))
        fault = fault_of("write", shown, errno);
    else if (!(fault = give_attributes(out, shown)) && !sync_descriptor(out))
        fault = fault_of("write", shown, errno);
    touched(where.directory, out);
    if (::close(out) != 0 && !fault)
        fault = fault_of("write", shown, errno);
    if (!fault && is_changed())
        fault = refusal(path_, "it changed while it was edited", true);
    if (!fault && !replace_name(where, temporary))
        fault = fault_of("put in place", path_, errno);
    if (fault)
        ::unlinkat(where.directory, temporary.c_str(), 0);
    return fault;
}

text_fault text_target::unlink() {
    return remove_name(path_, false) ? text_fault{} : fault_of("remove", path_, errno);
}

void text_target::drop(const std::string& temporary) const {
    remove_name(path_.substr(0, path_.find_last_of('/') + 1) + temporary, false);
}

} // namespace km
