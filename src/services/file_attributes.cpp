// file_attributes: modes, owners and times of files
// no format
// invariant: chmod never gets more than the low twelve bits
#include "file.h"

#include "trclog.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

namespace {

struct attribute_row {
    unsigned long mode;
    unsigned long portable;
};

constexpr attribute_row attribute_rows[] = {
    {0x800, 0x20000}, {0x400, 0x400000}, {0x200, 0x40000}, {0x100, 0x4000},
    {0x80, 0x8000},   {0x40, 0x10000},   {0x20, 0x80000},  {0x10, 0x100000},
    {0x8, 0x200000},  {0x4, 0x800000},   {0x2, 0x1000000}, {0x1, 0x2000000},
};

bool look(const pathname& path, struct stat& about) {
    if (::stat(path.mbcs_str(), &about) == 0)
        return true;
    KM_TRACE(trace_warning, "common", "Stat failed with errno = %d", errno);
    KM_TRACE(trace_warning, "common", "message = '%s' ...", std::strerror(errno));
    return false;
}

} // namespace

int file::get_file_attributes(unsigned long& mode) {
    struct stat about {};
    if (!look(path_, about))
        return keep(errno);
    mode = about.st_mode;
    return 1;
}

int file::set_file_attributes(unsigned long bits) {
    KM_TRACE_FUNCTION("file::set_file_attributes");
    struct stat about {};
    bits &= 07777;
    if (!look(path_, about))
        return keep(errno);
    KM_TRACE(trace_info, "common", "Setting Mode of: %s", path_.mbcs_str());
    KM_TRACE(trace_info, "common", "Current file mode is %x", about.st_mode);
    KM_TRACE(trace_info, "common", "Setting low 3 nybbles to %x", static_cast<unsigned>(bits));
    KM_TRACE(trace_info, "common", "Changing file mode to %x",
             static_cast<unsigned>((about.st_mode & ~07777U) | bits));
    if (::chmod(path_.mbcs_str(), static_cast<mode_t>(bits)) != 0 || !look(path_, about))
        return keep(errno);
    KM_TRACE(trace_info, "common", "Verifying mode was set:");
    KM_TRACE(trace_info, "common", "Mode was set to: %x", about.st_mode);
    return (about.st_mode & 07777) == bits;
}

int file::reset_attributes() {
    if (set_file_attributes(0))
        return 1;
    KM_TRACE(trace_error, "common", "Error setting file attributes");
    return 0;
}

int file::get_attributes(unsigned long& attributes, long& owner, long& group) {
    unsigned long mode = 0;
    if (!get_file_attributes(mode))
        return 0;
    attributes = 0;
    for (const auto& row : attribute_rows)
        if (mode & row.mode)
            attributes |= row.portable;
    owner = get_owner();
    group = get_group();
    return owner != -1 && group != -1;
}

int file::set_attributes(unsigned long attributes) {
    unsigned long mode = 0;
    for (const auto& row : attribute_rows)
        if (attributes & row.portable)
            mode |= row.mode;
    return set_file_attributes(mode);
}

long file::get_owner() {
    struct stat about {};
    return look(path_, about) ? static_cast<long>(about.st_uid) : -1;
}

long file::get_group() {
    struct stat about {};
    return look(path_, about) ? static_cast<long>(about.st_gid) : -1;
}

int file::set_owner(long owner) {
    KM_TRACE_FUNCTION("file::set_owner");
    KM_TRACE(trace_info, "common", "Setting owner of %s to %ld", path_.mbcs_str(), owner);
    if (::chown(path_.mbcs_str(), static_cast<uid_t>(owner), static_cast<gid_t>(-1)) == 0)
        return 1;
    KM_TRACE(trace_error, "common", "Failed to get set new owner (chown failed)..");
    return keep(errno);
}

int file::set_group(long group) {
    KM_TRACE_FUNCTION("file::set_group");
    if (::chown(path_.mbcs_str(), static_cast<uid_t>(-1), static_cast<gid_t>(group)) == 0)
        return 1;
    KM_TRACE(trace_error, "common", "Failed to get set new group (chown failed)..");
    return keep(errno);
}

long file::last_modified() {
    struct stat about {};
    return look(path_, about) ? static_cast<long>(about.st_mtime) : -1;
}

long file::get_creation_time() {
    struct stat about {};
    return look(path_, about) ? static_cast<long>(about.st_ctime) : -1;
}

long file::last_access_time() {
    struct stat about {};
    return look(path_, about) ? static_cast<long>(about.st_atime) : -1;
}

int file::set_time_stamps(const utimbuf* times) {
    KM_TRACE_FUNCTION("file::set_time_stamps");
    const int rc = ::utime(path_.mbcs_str(), times);
    if (rc == 0)
        return 1;
    const int error = errno;
    KM_TRACE(trace_error, "common", "Utime failed with rc = %d..", rc);
    KM_TRACE(trace_error, "common", "Utime failed with errno  = %d..", error);
    return keep(error);
}

} // namespace km
