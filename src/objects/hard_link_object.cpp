// hard_link_object: a second name of a file
// format: docs/formats/package-file.md
// invariant: the new name is made beside its place and renamed over what stands there
#include "hard_link_object.h"

#include "codec.h"
#include "directory_container.h"
#include "exporter.h"
#include "importer.h"
#include "object_command.h"
#include "object_messages.h"
#include "package.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace km {

const char* km_hard_link::codable_name() const { return "com.ombrel.sd.cmObjects.KmHardLink"; }

void km_hard_link::encode_object(encoder& to) const {
    km_object::encode_object(to);
    to.encode_string_field(220, target);
    to.encode_boolean_field(221, restores);
}

codable* km_hard_link::decode_object(decoder& from, long stream_version) {
    km_object::decode_object(from, stream_version);
    from.decode_string_field(220, target);
    from.decode_boolean_field(221, restores);
    return this;
}

// What km_object has of rights is the file's, not the name's.
void km_hard_link::import(importer& from) {
    cm_object::import(from);
    from.get_string("path", &path);
    from.get_string("target", &target);
    path = path_in_container(from, path);
    target = path_in_container(from, target);
}

void km_hard_link::export_(exporter& to) const {
    cm_object::export_(to);
    to.put_string("path", path);
    to.put_string("target", target);
}

namespace {
bool is_linkable(const std::string& path, struct stat& about) {
    return look_at(path, about) && S_ISREG(about.st_mode);
}
} // namespace

// The file may be one that the package puts there in front of the link.
bool km_hard_link::target_is_good() const {
    struct stat about {};
    return is_linkable(target.mbcs_str(), about) ||
           (package && const_cast<cm_package*>(package)->find(ustring(u"add ") + target, 1));
}

cm_result km_hard_link::check_target(const place& where, const struct stat* present) {
    if (present && S_ISDIR(present->st_mode))
        return fail(om_is_directory, path_bytes());
    struct stat about {};
    dev_t here = 0;
    if (is_linkable(target.mbcs_str(), about) && file_system_of(where.directory, here) &&
        about.st_dev != here)
        return fail("make the link", path_bytes(), EXDEV);
    if (target_is_good())
        return cm_command::success;
    tell(package, om_link_target, path_bytes(), target.mbcs_str());
    return result = cm_command::failure;
}

cm_result km_hard_link::put(int) {
    const std::string& bytes = path_bytes();
    if (stands_as_described(bytes, true))
        return cm_command::success;
    struct stat about {};
    if (!is_linkable(target.mbcs_str(), about)) {
        tell(package, om_link_target, bytes, target.mbcs_str());
        return result = cm_command::failure;
    }
    const auto parents = make_parents(bytes);
    if (parents != cm_command::success)
        return parents;
    const std::string temporary = bytes.substr(0, bytes.find_last_of('/') + 1) + temporary_name();
    begin_temporary();
    if (!remove_name(temporary, false) || !link_name(target.mbcs_str(), temporary))
        return fail("make the link", bytes, errno);
    const place where = locate(bytes);
    if (!where.found() || !replace_name(where, temporary_name())) {
        const int error = where.found() ? errno : where.error;
        drop_temporary();
        return fail("put in place", bytes, error);
    }
    touched(where.directory);
    end_temporary();
    return cm_command::success;
}

// Until the package has put its own file there, the name would be one of the old file.
bool km_hard_link::target_is_to_come() const {
    if (!package || package->operation_name != ustring(u"install"))
        return false;
    auto* add = dynamic_cast<cm_add_object*>(
        const_cast<cm_package*>(package)->find(ustring(u"add ") + target, 1));
    return add && add->object && add->object->exists(p_do) && add->is_to_be_added();
}

int km_hard_link::is_identical(int phase) {
    return km_object::is_identical(phase) && (phase == p_prepare || !target_is_to_come());
}

cm_object* km_hard_link::get_undo_object() {
    if (!stands_as_described(path_bytes(), true))
        return km_object::get_undo_object();
    auto* undo = new km_hard_link(*this);
    undo->restores = 1;
    return undo;
}

cm_result km_hard_link::finish_add() {
    struct stat about {};
    const bool can_be = restores && is_linkable(target.mbcs_str(), about) &&
                        look_at(path_bytes(), about) && S_ISREG(about.st_mode);
    return can_be ? put(p_do) : cm_command::success;
}

cm_result km_hard_link::take() {
    const std::string& bytes = path_bytes();
    struct stat about {};
    if (!look_at(bytes, about))
        return errno == ENOENT || errno == ENOTDIR ? cm_command::success
                                                   : fail("look at", bytes, errno);
    if (S_ISDIR(about.st_mode))
        return fail(om_is_directory, bytes);
    const auto removed = remove_own(bytes);
    return removed == cm_command::success ? remove_made_parents(bytes) : removed;
}

bool km_hard_link::stands_as_described(const std::string& at, bool) {
    struct stat mine {
    }, its{};
    return look_at(at, mine) && is_linkable(target.mbcs_str(), its) && mine.st_dev == its.st_dev &&
           mine.st_ino == its.st_ino;
}

ustring km_hard_link::get_log(int) { return path + ustring(u" => ") + target; }

extern "C" codable* make_KmHardLink() { return new km_hard_link; }

} // namespace km
