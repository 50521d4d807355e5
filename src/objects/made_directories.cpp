// made_directories: which directories a package made, known also after a kill
// format: docs/formats/made-directories.md
// invariant: the note stands before the directory
#include "made_directories.h"

#include "base_configuration.h"
#include "durable.h"
#include "file.h"
#include "object_command.h"
#include "package.h"

#include <cerrno>
#include <fcntl.h>
#include <set>
#include <unistd.h>

namespace km {

namespace {

struct notes {
    std::string file;
    std::set<std::string> paths;
    bool read = false;
};

notes& cached() {
    static notes only;
    return only;
}

std::string file_of(const cm_package& package) {
    ustring name, version;
    set_package_name_and_version(const_cast<cm_package&>(package), name, version);
    return made_file_of(name.mbcs_str(), version.mbcs_str());
}

// A last note without its NUL was cut by a kill; its directory was not made yet.
notes& notes_of(const cm_package& package) {
    notes& known = cached();
    std::string path = file_of(package);
    if (known.read && known.file == path)
        return known;
    known = {std::move(path), {}, true};
    const int in = ::open(known.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return known;
    std::string pending;
    char block[8192];
    for (ssize_t got; (got = ::read(in, block, sizeof block)) > 0;) {
        for (ssize_t i = 0; i < got; ++i) {
            if (block[i] != '\0') {
                pending += block[i];
                continue;
            }
            known.paths.insert(pending);
            pending.clear();
        }
    }
    ::close(in);
    return known;
}

} // namespace

std::string made_file_of(const std::string& name, const std::string& version) {
    const std::string working_dir(base_configuration().get_var(u"working_dir").mbcs_str());
    return working_dir + "/made/" + name + "^" + version;
}

int note_made_directory(const cm_package& package, const std::string& path) {
    notes& known = notes_of(package);
    if (known.paths.count(path))
        return 1;
    const int open_flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    int out = ::open(known.file.c_str(), open_flags, 0600);
    if (out < 0 && errno == ENOENT) {
        file(pathname(known.file.c_str()).get_parent()).mk_tree();
        out = ::open(known.file.c_str(), open_flags, 0600);
    }
    if (out < 0)
        return 0;
    // The NUL in front closes a note that a kill may have cut.
    std::string line = path;
    line += '\0';
    if (known.paths.empty())
        line.insert(line.begin(), '\0');
    const int done = write_fully(out, line.data(), line.size());
    const int error = errno;
    ::close(out);
    errno = error;
    if (done)
        known.paths.insert(path);
    return done;
}

bool made_by(const cm_package& package, const std::string& path) {
    return notes_of(package).paths.count(path) != 0;
}

void forget_made_directories() { cached() = {}; }

} // namespace km
