// file_attributes: owner, rights and time of a file that is being written
// no format
// invariant: no right is given before the owner is
#include "file_attributes.h"

#include "km_object.h"

#include <unistd.h>

namespace km {

bool file_attributes::operator==(const file_attributes& other) const {
    return mode == other.mode && owner == other.owner && group == other.group &&
           time.tv_sec == other.time.tv_sec && time.tv_nsec == other.time.tv_nsec;
}

// The last mode from the start, but not where the file may change hands, nor where its group
// counts, and never a right to write or a set-id bit.
mode_t mode_while_written(const file_attributes& wanted) {
    const auto rights = static_cast<mode_t>(wanted.mode);
    const bool stays_ours = !is_privileged() || (static_cast<uid_t>(wanted.owner) == ::geteuid() &&
                                                 static_cast<gid_t>(wanted.group) == ::getegid());
    const bool group_is_as_others = ((rights >> 3) & 05) == (rights & 05);
    return stays_ours && group_is_as_others ? 0600 | (rights & 0755) : 0600;
}

// Owner first: a change of owner takes set-id bits away. What fits already is not set again: a look
// costs a fraction of a change of the inode.
const char* set_attributes(int descriptor, const file_attributes& wanted, ino_t& inode) {
    struct stat about {};
    if (::fstat(descriptor, &about) != 0)
        return "look at";
    inode = about.st_ino;
    const auto user = static_cast<uid_t>(wanted.owner);
    const auto users = static_cast<gid_t>(wanted.group);
    const auto rights = static_cast<mode_t>(wanted.mode) & 07777;
    const bool changes_owner = is_privileged() && (about.st_uid != user || about.st_gid != users);
    if (changes_owner && ::fchown(descriptor, user, users) != 0)
        return "give an owner to";
    if ((changes_owner || (about.st_mode & 07777) != rights) && ::fchmod(descriptor, rights) != 0)
        return "set the mode of";
    const timespec times[2] = {{0, UTIME_OMIT}, wanted.time};
    return ::futimens(descriptor, times) == 0 ? nullptr : "set the time of";
}

} // namespace km
