// target_root: the one door through which objects reach the machine
#pragma once

#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace km {

// Puts `directory` in front of every path that objects touch; empty or "/" stands for the machine
// itself. A path cannot leave the root: symbolic links and ".." are resolved by the kernel inside
// it, never by text. 1, or 0 with errno if the directory cannot be opened. Called by the host once,
// before the first object acts; later calls forget all cached directories.
int set_target_root(const char* directory);

// The root as it was given, empty for the machine itself.
const std::string& get_target_root();

// A name in an open directory. `directory` is lent: it stays open until the next call of any
// function of this header that may close it (locate, make_parents, forget_directories).
struct place {
    int directory = -1; // -1: the parent is not there, or not to be reached
    int error = 0;      // errno of that
    std::string name;   // last component
    std::string parent; // path of the parent, for messages

    bool found() const { return directory >= 0; }
};

// Opens the parent of the absolute path `path`. A relative path, one with a NUL and one whose last
// component is "." or ".." give EINVAL; an empty last component ("/") is the root itself as ".".
place locate(const std::string& path);

// Missing parents of `path`, outermost first; empty if all are there. `error` takes the errno of a
// parent that cannot be looked at, 0 otherwise.
std::vector<std::string> missing_parents(const std::string& path, int& error);

// Makes one directory with `mode` (the umask is not applied). 1, also if it is there already; 0
// with errno.
int make_directory(const std::string& path, mode_t mode);

// Drops cached directory handles. To be called when a directory was removed or a link replaced.
void forget_directories();

// The metadata of what stands at `path` itself, a last symbolic link not followed. 1, or 0 with
// errno.
int look_at(const std::string& path, struct stat& about);

// While alive, a look at the path that was looked at last is not repeated, until something is
// changed through this header: the steps of one command ask for the same object one after the
// other.
class one_look {
  public:
    one_look();
    ~one_look();
    one_look(const one_look&) = delete;
    one_look& operator=(const one_look&) = delete;
};

// Inside a one_look: somebody else looked at `path`, a moment ago. `held`, a descriptor of
// hold_for_release() or -1, is taken over: it serves if the name is removed.
void keep_look(const std::string& path, const struct stat& about, int held);

// An O_PATH descriptor of the caller's own, -1 with errno. Any thread may ask while the root stays.
int open_directory_below_root(const std::string& path);

// Opens what stands at `path` for reading; a last symbolic link is refused (ELOOP). -1 with errno.
int open_for_reading(const std::string& path);

// Text of the symbolic link at `path`. 1, or 0 with errno.
int read_link(const std::string& path, std::string& text);

// Removes the name `path`. 1, also if it is not there; 0 with errno. Where the parent belongs to
// the caller and only its mode forbids it, the mode is lifted for the moment of the removal.
int remove_name(const std::string& path, bool is_directory);

// Removes a name and leaves the times of its directory as they were. 1 or 0.
int remove_name_unseen(const std::string& path);

// Renames inside one directory, over what stands there. Same help with the mode. `replaces_file`: a
// file stands there, whose blocks may be given back later. 1, or 0 with errno.
int replace_name(const place& where, const std::string& temporary, bool replaces_file = false);

// Gives a file that was made without a name the name `name` in the directory of `where`. 1, or 0
// with errno: EEXIST where something has that name.
int name_open_file(const place& where, const std::string& name, int open_file);

// Renames from one path to another of the same file system, over what stands there. 1, or 0 with
// errno.
int move_name(const std::string& from, const std::string& to);

// Gives a file a second name; the times of the directory stay. 1, or 0 with errno.
int link_name(const std::string& from, const std::string& to);

// 1 if the caller may make and remove names in the directory, also by lifting the mode of a
// directory of its own; 0 with errno.
int may_write_in(const place& where);

// Device number of the file system of `directory`. 1, or 0 with errno.
int file_system_of(int directory, dev_t& device);

// 1 if `about` is of the directory that `where` is in.
int is_directory(const place& where, const struct stat& about);

// Bytes that the caller may still write on the file system of `directory`, and its device number.
// 1, or 0 with errno.
int room_in(int directory, unsigned long long& bytes, dev_t& device);

// Notes that the file system of `directory` was changed, so that flush_touched() reaches it.
void touched(int directory, int open_file = -1);

// Notes that a file of `bytes` came into `directory`: much of that is flushed early, in the
// background.
void wrote_file(int directory, long bytes);

// 1 if something was changed on the file system since the last flush.
int is_touched(dev_t device);

// One flush per file system that was changed since the last call. 1, or 0 with errno of the first
// that failed; what failed is tried again by the next call.
int flush_touched();

// While alive, the directory may be written in by its owner: where only its mode stands in the way
// the missing bits are added, and taken off at the end.
class writable_directory {
  public:
    explicit writable_directory(int directory);
    ~writable_directory();
    writable_directory(const writable_directory&) = delete;
    writable_directory& operator=(const writable_directory&) = delete;

  private:
    int directory_;
    mode_t restore_ = 0;
    bool changed_ = false;
};

} // namespace km
