// target_root: the one door through which objects reach the machine
// no format
// invariant: every path is resolved by the kernel below the root; no path is put together by text
#include "target_root.h"

#include "early_flush.h"
#include "late_release.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <map>
#include <string_view>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace km {

namespace {

// Directories in use at a time are few: files come in path order, so a handful hits nearly always.
constexpr size_t cached_directories = 8;

struct cached {
    std::string path;
    int descriptor;
    bool is_known = false;
    dev_t device = 0;
    ino_t inode = 0;
    bool takes_names = false;
    bool gives_back_slowly = false;
};

struct look {
    std::string path; // empty: none
    struct stat about {};
    int error = 0;
    int held = -1; // the file, for release_late()

    void forget() {
        path.clear();
        if (held >= 0)
            ::close(held);
        held = -1;
    }
};

struct root_state {
    std::string text;
    int descriptor = -1; // -1: the machine itself
    std::vector<cached> directories;
    std::string absent; // a directory that was just found missing, with all below it
    std::map<dev_t, int> changed;
    look last;
    int kept_looks = 0;
    bool beyond_reach = false; // a changed file system of which no descriptor could be had
};

root_state& state() {
    static root_state only;
    return only;
}

int open_below(const std::string& path, int flags) {
    root_state& root = state();
    if (root.descriptor < 0)
        return ::open(path.c_str(), flags | O_CLOEXEC);
    open_how how{};
    how.flags = static_cast<__u64>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_IN_ROOT;
    for (;;) {
        long got = ::syscall(SYS_openat2, root.descriptor, path.c_str(), &how, sizeof how);
        // A rename somewhere below the root makes the kernel give up a walk over "..".
        if (got < 0 && errno == EAGAIN)
            continue;
        return static_cast<int>(got);
    }
}

// Most recently used last.
int cached_directory(std::string_view path) {
    auto& all = state().directories;
    for (size_t i = all.size(); i-- > 0;)
        if (all[i].path == path) {
            cached hit = all[i];
            all.erase(all.begin() + static_cast<long>(i));
            all.push_back(hit);
            return hit.descriptor;
        }
    return -1;
}

bool is_known_absent(std::string_view path) {
    const std::string& absent = state().absent;
    return !absent.empty() && path.compare(0, absent.size(), absent) == 0 &&
           (path.size() == absent.size() || path[absent.size()] == '/');
}

int directory_of(std::string_view named) {
    int descriptor = cached_directory(named);
    if (descriptor >= 0)
        return descriptor;
    // Before an install all names below a missing directory are asked for one by one.
    if (is_known_absent(named)) {
        errno = ENOENT;
        return -1;
    }
    const std::string path(named);
    descriptor = open_below(path, O_PATH | O_DIRECTORY);
    if (descriptor < 0) {
        if (errno == ENOENT)
            state().absent = path;
        return -1;
    }
    auto& all = state().directories;
    if (all.size() == cached_directories) {
        ::close(all.front().descriptor);
        all.erase(all.begin());
    }
    all.push_back({.path = path,
                   .descriptor = descriptor,
                   .gives_back_slowly = gives_back_slowly(descriptor)});
    return descriptor;
}

bool well_formed(const std::string& path) {
    return !path.empty() && path[0] == '/' && path.find('\0') == std::string::npos;
}

cached* cached_under(int directory) {
    for (cached& one : state().directories)
        if (one.descriptor == directory)
            return &one;
    return nullptr;
}

// The file system and the number of a directory; one of the cached is asked once. False with errno.
bool identity_of(int directory, dev_t& device, ino_t& inode) {
    cached* known = cached_under(directory);
    if (known && known->is_known) {
        device = known->device;
        inode = known->inode;
        return true;
    }
    struct stat about {};
    if (::fstat(directory, &about) != 0)
        return false;
    device = about.st_dev;
    inode = about.st_ino;
    if (known) {
        known->is_known = true;
        known->device = device;
        known->inode = inode;
    }
    return true;
}

bool device_of(int directory, dev_t& device) {
    ino_t inode = 0;
    return identity_of(directory, device, inode);
}

// An open descriptor of an O_PATH directory on which modes can be changed and file systems synced.
int readable_twin(int directory) {
    return ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool owned_without_write(int directory, mode_t& mode) {
    struct stat about {};
    if (::fstat(directory, &about) != 0 || about.st_uid != ::geteuid())
        return false;
    mode = about.st_mode & 07777;
    return (mode & 0300) != 0300;
}

// O_PATH descriptors refuse fchmod; their name in /proc does not.
int change_mode(int directory, mode_t mode) {
    const std::string name = "/proc/self/fd/" + std::to_string(directory);
    return ::chmod(name.c_str(), mode);
}

} // namespace

int set_target_root(const char* directory) {
    root_state& root = state();
    forget_directories();
    if (root.descriptor >= 0)
        ::close(root.descriptor);
    root.descriptor = -1;
    root.text.clear();
    if (!directory || !*directory || std::strcmp(directory, "/") == 0)
        return 1;
    root.descriptor = ::open(directory, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (root.descriptor < 0)
        return 0;
    root.text = directory;
    return 1;
}

const std::string& get_target_root() { return state().text; }

namespace {
// Of no use for a path that is not well formed.
struct split_path {
    std::string_view parent{"/"}, name{"."};

    explicit split_path(const std::string& path) {
        const size_t last = path.find_last_not_of('/');
        if (last == std::string::npos)
            return; // the root itself
        const size_t slash = path.find_last_of('/', last);
        const std::string_view all(path);
        name = all.substr(slash + 1, last - slash);
        if (slash > 0)
            parent = all.substr(0, slash);
        is_named = name != "." && name != "..";
    }
    bool is_named = true;
};
} // namespace

place locate(const std::string& path) {
    place where;
    where.error = EINVAL;
    if (!well_formed(path))
        return where;
    const split_path parts(path);
    where.parent = parts.parent;
    where.name = parts.name;
    if (!parts.is_named)
        return where;
    where.directory = directory_of(parts.parent);
    where.error = where.directory < 0 ? errno : 0;
    return where;
}

std::vector<std::string> missing_parents(const std::string& path, int& error) {
    std::vector<std::string> missing;
    error = 0;
    if (const split_path parts(path);
        well_formed(path) && parts.is_named && cached_directory(parts.parent) >= 0)
        return missing;
    std::string here = path;
    for (;;) {
        place where = locate(here);
        if (where.found() || where.error != ENOENT) {
            error = where.found() ? 0 : where.error;
            return missing;
        }
        missing.insert(missing.begin(), where.parent);
        here = where.parent;
    }
}

int make_directory(const std::string& path, mode_t mode) {
    state().absent.clear();
    place where = locate(path);
    if (!where.found()) {
        errno = where.error;
        return 0;
    }
    writable_directory lifted(where.directory);
    if (::mkdirat(where.directory, where.name.c_str(), mode | 0700) != 0) {
        if (errno != EEXIST)
            return 0;
        struct stat about {};
        if (::fstatat(where.directory, where.name.c_str(), &about, 0) != 0)
            return 0;
        if (!S_ISDIR(about.st_mode)) {
            errno = ENOTDIR;
            return 0;
        }
        return 1;
    }
    touched(where.directory);
    return ::fchmodat(where.directory, where.name.c_str(), mode | 0700, 0) == 0;
}

void forget_directories() {
    state().absent.clear();
    for (auto& one : state().directories)
        ::close(one.descriptor);
    state().directories.clear();
}

namespace {
// Directories that are gone, under whatever name they were found.
void forget_removed() {
    state().absent.clear();
    std::erase_if(state().directories, [](const cached& one) {
        struct stat about {};
        const bool gone = ::fstat(one.descriptor, &about) != 0 || about.st_nlink == 0;
        if (gone)
            ::close(one.descriptor);
        return gone;
    });
}
} // namespace

one_look::one_look() { ++state().kept_looks; }

one_look::~one_look() {
    --state().kept_looks;
    state().last.forget();
}

namespace {
int look_anew(const std::string& path, struct stat& about) {
    place where;
    const char* name = nullptr; // of which no copy is needed
    if (const split_path parts(path); well_formed(path) && path.back() != '/' && parts.is_named) {
        where.directory = directory_of(parts.parent);
        name = parts.name.data();
    } else {
        where = locate(path);
        name = where.name.c_str();
        errno = where.error;
    }
    return where.found() && ::fstatat(where.directory, name, &about, AT_SYMLINK_NOFOLLOW) == 0;
}
} // namespace

int look_at(const std::string& path, struct stat& about) {
    if (state().kept_looks == 0)
        return look_anew(path, about);
    look& last = state().last;
    if (last.path != path) {
        last.forget();
        last.path = path;
        last.error = look_anew(path, last.about) ? 0 : errno;
    }
    about = last.about;
    errno = last.error;
    return last.error == 0;
}

void keep_look(const std::string& path, const struct stat& about, int held) {
    look& last = state().last;
    last.forget();
    last.path = path;
    last.about = about;
    last.error = 0;
    last.held = held;
}

int open_directory_below_root(const std::string& path) {
    return open_below(path, O_PATH | O_DIRECTORY);
}

int open_for_reading(const std::string& path) {
    place where = locate(path);
    if (!where.found()) {
        errno = where.error;
        return -1;
    }
    // O_NONBLOCK: a named pipe in the place of a file must not stop the engine.
    return ::openat(where.directory, where.name.c_str(),
                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

int read_link(const std::string& path, std::string& text) {
    place where = locate(path);
    if (!where.found()) {
        errno = where.error;
        return 0;
    }
    char block[4097];
    ssize_t got = ::readlinkat(where.directory, where.name.c_str(), block, sizeof block);
    if (got < 0)
        return 0;
    text.assign(block, static_cast<size_t>(got));
    return 1;
}

namespace {
// While alive the name of a file goes alone; its blocks follow in the background.
class held_file {
  public:
    // `held` is taken over.
    held_file(const place& where, bool is_file, int held = -1, std::int64_t bytes = 0)
        : held_(held), bytes_(bytes) {
        if (held_ >= 0)
            return;
        const cached* known = is_file ? cached_under(where.directory) : nullptr;
        if (known && known->gives_back_slowly)
            held_ = hold_for_release(where.directory, where.name.c_str(), bytes);
    }
    ~held_file() {
        const int error = errno;
        release_late(held_, bytes_);
        errno = error;
    }
    held_file(const held_file&) = delete;
    held_file& operator=(const held_file&) = delete;

  private:
    int held_;
    std::int64_t bytes_;
};

int unlink_name(const place& where, bool is_directory, int looked_at, std::int64_t bytes) {
    if (is_directory) {
        const release_pause pause;
        return ::unlinkat(where.directory, where.name.c_str(), AT_REMOVEDIR);
    }
    const held_file held(where, !is_directory, looked_at, bytes);
    return ::unlinkat(where.directory, where.name.c_str(), 0);
}

int rename_in_place(const place& where, const std::string& temporary, bool replaces_file) {
    const held_file held(where, replaces_file);
    return ::renameat(where.directory, temporary.c_str(), where.directory, where.name.c_str());
}
} // namespace

int remove_name(const std::string& path, bool is_directory) {
    place where = locate(path);
    if (!where.found()) {
        errno = where.error;
        return where.error == ENOENT || where.error == ENOTDIR;
    }
    look& last = state().last;
    const bool known = last.path == path;
    const int looked_at = known ? std::exchange(last.held, -1) : -1;
    int done = unlink_name(where, is_directory, looked_at, known ? last.about.st_size : 0);
    if (done != 0 && errno == EACCES) {
        writable_directory lifted(where.directory);
        done = unlink_name(where, is_directory, -1, 0);
    }
    if (done != 0)
        return errno == ENOENT;
    touched(where.directory);
    if (is_directory)
        forget_removed();
    return 1;
}

namespace {
// While alive, what is done in the directory leaves its times as they were.
class kept_times {
  public:
    explicit kept_times(int directory)
        : name_("/proc/self/fd/" + std::to_string(directory)),
          known_(::fstat(directory, &about_) == 0) {}
    ~kept_times() {
        const timespec times[2] = {about_.st_atim, about_.st_mtim};
        if (known_)
            ::utimensat(AT_FDCWD, name_.c_str(), times, 0);
    }
    kept_times(const kept_times&) = delete;
    kept_times& operator=(const kept_times&) = delete;

  private:
    struct stat about_ {};
    std::string name_;
    bool known_;
};
} // namespace

int remove_name_unseen(const std::string& path) {
    const place where = locate(path);
    if (!where.found())
        return where.error == ENOENT;
    const kept_times while_it_goes(where.directory);
    return remove_name(path, false);
}

int replace_name(const place& where, const std::string& temporary, bool replaces_file) {
    state().absent.clear();
    if (rename_in_place(where, temporary, replaces_file) != 0) {
        if (errno != EACCES)
            return 0;
        writable_directory lifted(where.directory);
        if (rename_in_place(where, temporary, false) != 0)
            return 0;
    }
    touched(where.directory);
    return 1;
}

namespace {
// Straight by its descriptor, which is quicker but not granted to everybody; or by its name in
// /proc.
bool link_open_file(int directory, const char* name, int open_file) {
    static bool is_granted = true;
    if (is_granted && ::linkat(open_file, "", directory, name, AT_EMPTY_PATH) == 0)
        return true;
    if (is_granted && errno != ENOENT)
        return false;
    is_granted = false;
    const std::string from = "/proc/self/fd/" + std::to_string(open_file);
    return ::linkat(AT_FDCWD, from.c_str(), directory, name, AT_SYMLINK_FOLLOW) == 0;
}
} // namespace

int name_open_file(const place& where, const std::string& name, int open_file) {
    if (!link_open_file(where.directory, name.c_str(), open_file))
        return 0;
    touched(where.directory, open_file);
    return 1;
}

int move_name(const std::string& from, const std::string& to) {
    const place old_place = locate(from);
    const place new_place = locate(to);
    // The second look-up may have closed the first directory.
    const place from_place = locate(from);
    if (!old_place.found() || !new_place.found() || !from_place.found()) {
        errno = old_place.error ? old_place.error : new_place.error;
        return 0;
    }
    writable_directory lifted_from(from_place.directory);
    writable_directory lifted_to(new_place.directory);
    if (::renameat(from_place.directory, from_place.name.c_str(), new_place.directory,
                   new_place.name.c_str()) != 0)
        return 0;
    touched(new_place.directory);
    touched(from_place.directory);
    return 1;
}

int link_name(const std::string& from, const std::string& to) {
    locate(from);
    const place new_place = locate(to);
    const place old_place = locate(from); // the second look-up may have closed the first directory
    if (!old_place.found() || !new_place.found()) {
        errno = old_place.error ? old_place.error : new_place.error;
        return 0;
    }
    writable_directory lifted(new_place.directory);
    const kept_times while_it_comes(new_place.directory);
    if (::linkat(old_place.directory, old_place.name.c_str(), new_place.directory,
                 new_place.name.c_str(), 0) != 0)
        return 0;
    touched(new_place.directory);
    return 1;
}

int may_write_in(const place& where) {
    cached* known = cached_under(where.directory);
    if (known && known->takes_names)
        return 1;
    if (::faccessat(where.directory, ".", W_OK | X_OK, AT_EACCESS) == 0) {
        if (known)
            known->takes_names = true;
        return 1;
    }
    if (errno != EACCES)
        return 0;
    mode_t mode = 0;
    if (owned_without_write(where.directory, mode))
        return 1;
    errno = EACCES;
    return 0;
}

int file_system_of(int directory, dev_t& device) { return device_of(directory, device); }

int is_directory(const place& where, const struct stat& about) {
    dev_t device = 0;
    ino_t inode = 0;
    return identity_of(where.directory, device, inode) && device == about.st_dev &&
           inode == about.st_ino;
}

int room_in(int directory, unsigned long long& bytes, dev_t& device) {
    struct statvfs space {};
    if (!device_of(directory, device) || ::fstatvfs(directory, &space) != 0)
        return 0;
    bytes = static_cast<unsigned long long>(::geteuid() == 0 ? space.f_bfree : space.f_bavail) *
            space.f_frsize;
    return 1;
}

void touched(int directory, int open_file) {
    state().last.forget();
    dev_t device = 0;
    if (!device_of(directory, device) || state().changed.count(device))
        return;
    int twin = readable_twin(directory);
    if (twin < 0 && open_file >= 0)
        twin = ::fcntl(open_file, F_DUPFD_CLOEXEC, 0);
    if (twin >= 0)
        state().changed[device] = twin;
    else
        state().beyond_reach = true;
}

void wrote_file(int directory, long bytes) {
    dev_t device = 0;
    if (device_of(directory, device))
        note_change(device, directory, bytes);
}

int is_touched(dev_t device) { return state().changed.count(device) != 0; }

int flush_touched() {
    finish_releases();
    auto& changed = state().changed;
    int first_error = 0;
    if (state().beyond_reach)
        ::sync();
    state().beyond_reach = false;
    for (auto it = changed.begin(); it != changed.end();) {
        if (::syncfs(it->second) != 0) {
            first_error = first_error ? first_error : errno;
            ++it;
            continue;
        }
        ::close(it->second);
        it = changed.erase(it);
    }
    errno = first_error;
    return first_error == 0;
}

writable_directory::writable_directory(int directory) : directory_(directory) {
    if (::geteuid() == 0 || ::faccessat(directory, ".", W_OK | X_OK, AT_EACCESS) == 0)
        return;
    if (owned_without_write(directory, restore_))
        changed_ = change_mode(directory, restore_ | 0300) == 0;
}

writable_directory::~writable_directory() {
    if (changed_)
        change_mode(directory_, restore_);
}

} // namespace km
