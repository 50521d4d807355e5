// made_directories: which directories a package made, known also after a kill
// format: docs/formats/made-directories.md
// invariant: the note stands before the directory
#include "made_directories.h"

#include "base_configuration.h"
#include "durable.h"
#include "file.h"
#include "object_command.h"
#include "package.h"
#include "target_root.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

namespace {

using paths = std::set<std::string>;

struct notes {
    std::string file;
    paths own;
    paths left;
    bool read = false;
};

notes& cached() {
    static notes only;
    return only;
}

std::string directory_of_notes() {
    return base_configuration().get_var(u"working_dir").mbcs_str() + std::string("/made/");
}

// No package is called so: a package's file has a '^' in its name.
std::string left_file() { return directory_of_notes() + "left"; }

std::string file_of(const cm_package& package) {
    ustring name, version;
    set_package_name_and_version(const_cast<cm_package&>(package), name, version);
    return made_file_of(name.mbcs_str(), version.mbcs_str());
}

// A last note without its NUL was cut by a kill; its directory was not made yet.
paths read_notes(const std::string& file) {
    paths all;
    const int in = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return all;
    std::string pending;
    char block[8192];
    for (ssize_t got; (got = ::read(in, block, sizeof block)) > 0;) {
        for (ssize_t i = 0; i < got; ++i) {
            if (block[i] != '\0') {
                pending += block[i];
                continue;
            }
            if (!pending.empty())
                all.insert(pending);
            pending.clear();
        }
    }
    ::close(in);
    return all;
}

notes& notes_of(const cm_package& package) {
    notes& known = cached();
    std::string path = file_of(package);
    if (!known.read || known.file != path)
        known = {path, read_notes(path), read_notes(left_file()), true};
    return known;
}

int write_notes(const std::string& file, const paths& all) {
    if (all.empty())
        return ::unlink(file.c_str()) == 0 || errno == ENOENT;
    return replace_durably(pathname(file.c_str()), 0600, [&all](int out) {
        std::string text;
        for (const auto& path : all)
            text.append(path).push_back('\0');
        return write_fully(out, text.data(), text.size());
    });
}

bool stands(const std::string& path) {
    struct stat about {};
    return look_at(path, about) && S_ISDIR(about.st_mode);
}

} // namespace

std::string made_file_of(const std::string& name, const std::string& version) {
    return directory_of_notes() + name + "^" + version;
}

int note_made_directory(const cm_package& package, const std::string& path) {
    notes& known = notes_of(package);
    if (known.own.count(path))
        return 1;
    const int open_flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    int out = ::open(known.file.c_str(), open_flags, 0600);
    if (out < 0 && errno == ENOENT) {
        file(pathname(known.file.c_str()).get_parent()).mk_tree();
        out = ::open(known.file.c_str(), open_flags, 0600);
    }
    if (out < 0)
        return 0;
    // The NUL in front closes a note that was cut.
    std::string line(1, '\0');
    line.append(path).push_back('\0');
    const int done = write_fully(out, line.data(), line.size());
    const int error = errno;
    ::close(out);
    errno = error;
    if (done)
        known.own.insert(path);
    return done;
}

bool made_by(const cm_package& package, const std::string& path) {
    const notes& known = notes_of(package);
    return known.own.count(path) || known.left.count(path);
}

namespace {
int keep_left(const paths& more) {
    const paths old = read_notes(left_file());
    paths left;
    for (const auto* all : {&old, &more})
        std::copy_if(all->begin(), all->end(), std::inserter(left, left.end()), stands);
    forget_made_directories();
    return left == old || write_notes(left_file(), left);
}
} // namespace

int hand_over_made_directories(const std::string& name, const std::string& version) {
    const std::string file = made_file_of(name, version);
    return keep_left(read_notes(file)) && (::unlink(file.c_str()) == 0 || errno == ENOENT);
}

void remove_empty_made_directories(const std::string& name, const std::string& version) {
    const paths made = read_notes(made_file_of(name, version));
    for (auto path = made.rbegin(); path != made.rend(); ++path) // contents before what holds them
        remove_name(*path, true);
}

int prune_left_directories() { return keep_left({}); }

void forget_made_directories() { cached() = {}; }

} // namespace km
