// parents: directories above an object that are made for it, and go with it
// format: docs/formats/made-directories.md
// invariant: a directory that is not noted is not made, and one that somebody uses is not removed
#include "parents.h"

#include "made_directories.h"

#include <cerrno>

namespace km {

place nearest_place(std::string& path) {
    place where = locate(path);
    while (!where.found() && where.error == ENOENT && where.parent != "/") {
        path = where.parent;
        where = locate(path);
    }
    return where;
}

parent_fault make_noted_parents(const cm_package* package, const std::string& path) {
    int error = 0;
    for (const std::string& parent : missing_parents(path, error)) {
        if (package && !note_made_directory(*package, parent))
            return {"note the directory", parent, errno};
        if (!make_directory(parent, 0755))
            return {"make the directory", parent, errno};
    }
    return error ? parent_fault{"reach", path, error} : parent_fault{};
}

namespace {
// What others put into a directory, or made of it, is a reason to leave it, and no failure.
bool is_reason_to_stay(int error) {
    return error == ENOTEMPTY || error == EEXIST || error == EBUSY || error == ENOTDIR ||
           error == EACCES || error == EPERM;
}
} // namespace

parent_fault remove_noted_parents(const cm_package& package, const std::string& path) {
    std::string parent = path;
    for (;;) {
        const size_t slash = parent.find_last_of('/');
        if (slash == std::string::npos || slash == 0)
            return {};
        parent.erase(slash);
        if (!made_by(package, parent))
            return {};
        if (!remove_name(parent, true))
            return is_reason_to_stay(errno) ? parent_fault{}
                                            : parent_fault{"remove the directory", parent, errno};
    }
}

} // namespace km
