// directory_object: a directory
// format: docs/formats/package-file.md
// invariants: a directory that was there before is never removed; one that is not empty stays
#include "directory_object.h"

#include "kill_point.h"
#include "made_directories.h"
#include "object_messages.h"
#include "package.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace km {

const char* km_directory::codable_name() const { return "com.ombrel.sd.cmObjects.KmDirectory"; }

cm_result km_directory::check_target(const place&, const struct stat* present) {
    if (present && !S_ISDIR(present->st_mode))
        return fail("make the directory", path_bytes(), EEXIST);
    if (!present && package)
        expect_made_directory(*package, path_bytes());
    return cm_command::success;
}

cm_result km_directory::put(int) {
    const std::string& bytes = path_bytes();
    const auto parents = make_parents(bytes);
    if (parents != cm_command::success)
        return parents;
    struct stat about {};
    if (look_at(bytes, about)) {
        if (!S_ISDIR(about.st_mode))
            return fail("make the directory", bytes, EEXIST);
        created = created || (package && made_by(*package, bytes));
    } else {
        if (package && !note_made_directory(*package, bytes))
            return fail("note the directory", bytes, errno);
        KM_KILL_POINT("directory.before_make");
        if (!make_directory(bytes, (static_cast<mode_t>(mode) & 07777) | S_IRWXU))
            return fail("make the directory", bytes, errno);
        created = 1;
    }
    was_put_ = true;
    // Its owner must be able to fill it: what would forbid that comes behind its contents.
    const bool can_be_filled = is_privileged() || (mode & S_IRWXU) == S_IRWXU;
    return can_be_filled ? give_rights() : cm_command::success;
}

bool km_directory::is_own() const {
    return created || (package && made_by(*package, path_bytes()));
}

cm_result km_directory::give_rights() {
    const std::string& bytes = path_bytes();
    const place where = locate(bytes);
    if (!where.found())
        return fail("reach", where.parent, where.error);
    const char* name = where.name.c_str();
    struct stat about {};
    if (::fstatat(where.directory, name, &about, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISDIR(about.st_mode))
        return cm_command::success; // gone again: there is nothing to finish
    if (same_rights(about))
        return cm_command::success;
    if (is_privileged() && ::fchownat(where.directory, name, static_cast<uid_t>(owner),
                                      static_cast<gid_t>(group), AT_SYMLINK_NOFOLLOW) != 0)
        return fail("give an owner to", bytes, errno);
    if (::fchmodat(where.directory, name, static_cast<mode_t>(mode) & 07777, 0) != 0)
        return fail("set the mode of", bytes, errno);
    touched(where.directory);
    return cm_command::success;
}

// The time, and rights that had to wait, come behind the last of its contents. A directory that the
// package made keeps the package's time, whatever was put into it; one of somebody else is left
// alone.
cm_result km_directory::finish_add() {
    const bool put_here = was_put_;
    was_put_ = false;
    if (!put_here && !is_own())
        return cm_command::success;
    const std::string& bytes = path_bytes();
    const place where = locate(bytes);
    if (!where.found())
        return where.error == ENOENT ? cm_command::success // an undo took it away
                                     : fail("reach", where.parent, where.error);
    const char* name = where.name.c_str();
    struct stat about {};
    if (::fstatat(where.directory, name, &about, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISDIR(about.st_mode) || (!put_here && !same_rights(about)))
        return cm_command::success; // gone again, or changed by somebody
    const timespec times[2] = {{0, UTIME_OMIT}, modification_time()};
    const auto set_time = [&] {
        return ::utimensat(where.directory, name, times, AT_SYMLINK_NOFOLLOW) == 0;
    };
    // Nobody comes back to a cleanup: what fails for a moment is tried twice.
    if (!set_time() && !set_time() && (is_privileged() || about.st_uid == ::geteuid()))
        return fail("set the time of", bytes, errno);
    touched(where.directory);
    return give_rights();
}

cm_result km_directory::take() {
    const std::string& bytes = path_bytes();
    if (!is_own() && !asked_for_)
        return cm_command::success;
    struct stat about {};
    if (!look_at(bytes, about))
        return errno == ENOENT || errno == ENOTDIR ? cm_command::success
                                                   : fail("look at", bytes, errno);
    if (!S_ISDIR(about.st_mode))
        return cm_command::success; // something of somebody else
    KM_KILL_POINT("directory.before_remove");
    if (remove_name(bytes, true))
        return remove_made_parents(bytes);
    if (errno == ENOTEMPTY || errno == EEXIST || errno == EBUSY) {
        tell(package, om_not_empty, bytes);
        return cm_command::success;
    }
    return fail("remove the directory", bytes, errno);
}

bool km_directory::stands_as_described(const std::string& at, bool with_rights) {
    struct stat about {};
    return !always_put && look_at(at, about) && S_ISDIR(about.st_mode) &&
           (!with_rights || same_rights(about));
}

cm_result km_directory::load(int) {
    result = cm_command::success;
    if (source.empty()) {
        take_default_metadata(0755);
        return result;
    }
    struct stat about {};
    if (::lstat(source.c_str(), &about) != 0)
        return fail("look at", source, errno);
    if (!S_ISDIR(about.st_mode))
        return fail(om_changed, source);
    take_metadata(about);
    return result;
}

extern "C" codable* make_KmDirectory() { return new km_directory; }

} // namespace km
