// link_object: a symbolic link
// format: docs/formats/package-file.md
// invariant: the link is made beside its place and renamed over what stands there
#include "link_object.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "object_messages.h"
#include "package.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace km {

const char* km_link::codable_name() const { return "com.ombrel.sd.cmObjects.KmLink"; }

void km_link::encode_object(encoder& to) const {
    km_object::encode_object(to);
    to.encode_string_field(220, target);
}

codable* km_link::decode_object(decoder& from, long stream_version) {
    km_object::decode_object(from, stream_version);
    from.decode_string_field(220, target);
    return this;
}

void km_link::import(importer& from) {
    km_object::import(from);
    from.get_string("target", &target);
}

void km_link::export_(exporter& to) const {
    km_object::export_(to);
    to.put_string("target", target);
}

cm_result km_link::check_target(const place&, const struct stat* present) {
    return present && S_ISDIR(present->st_mode) ? fail(om_is_directory, path_bytes())
                                                : cm_command::success;
}

// A link that is whole, made beside `where` and renamed into it.
cm_result km_link::make(const place& where, const std::string& shown) {
    const std::string name = temporary_name();
    const writable_directory lifted(where.directory);
    begin_temporary();
    ::unlinkat(where.directory, name.c_str(), 0);
    if (::symlinkat(target.mbcs_str(), where.directory, name.c_str()) != 0)
        return fail("make the link", shown, errno);
    const auto give_up = [&](const char* what, int error) {
        ::unlinkat(where.directory, name.c_str(), 0);
        return fail(what, shown, error);
    };
    if (is_privileged() && ::fchownat(where.directory, name.c_str(), static_cast<uid_t>(owner),
                                      static_cast<gid_t>(group), AT_SYMLINK_NOFOLLOW) != 0)
        return give_up("give an owner to", errno);
    const timespec times[2] = {{0, UTIME_OMIT}, modification_time()};
    if (::utimensat(where.directory, name.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0 &&
        errno != ENOSYS && errno != EOPNOTSUPP)
        return give_up("set the time of", errno);
    if (!replace_name(where, name))
        return give_up("put in place", errno);
    end_temporary();
    return cm_command::success;
}

cm_result km_link::put(int) {
    const std::string& bytes = path_bytes();
    if (is_identical(p_do))
        return cm_command::success;
    const auto parents = make_parents(bytes);
    if (parents != cm_command::success)
        return parents;
    const place where = locate(bytes);
    if (!where.found())
        return fail("reach", where.parent, where.error);
    const auto made = make(where, bytes);
    was_placed();
    return made;
}

cm_result km_link::stage() {
    const std::string base = staging_directory();
    if (base.empty())
        return result;
    const std::string final_name = base + temporary_name() + staged_mark;
    const place where = locate(final_name);
    if (!where.found())
        return fail("reach", where.parent, where.error);
    const auto made = make(where, final_name);
    if (made == cm_command::success)
        note_staged(final_name);
    return made;
}

cm_result km_link::take() {
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

bool km_link::stands_as_described(const std::string& at, bool with_rights) {
    struct stat about {};
    std::string text;
    if (!look_at(at, about) || !S_ISLNK(about.st_mode) || !read_link(at, text) ||
        text != target.mbcs_str())
        return false;
    return !with_rights || !is_privileged() ||
           (static_cast<std::int32_t>(about.st_uid) == owner &&
            static_cast<std::int32_t>(about.st_gid) == group);
}

cm_result km_link::load(int) {
    result = cm_command::success;
    if (source.empty()) {
        take_default_metadata(0777);
        return result;
    }
    struct stat about {};
    char text[4097];
    const ssize_t length = ::readlink(source.c_str(), text, sizeof text - 1);
    if (length < 0 || ::lstat(source.c_str(), &about) != 0)
        return fail("read the link", source, errno);
    text[length] = '\0';
    target = ustring(text);
    take_metadata(about);
    return result;
}

ustring km_link::get_log(int) { return path + ustring(u" -> ") + target; }

extern "C" codable* make_KmLink() { return new km_link; }

} // namespace km
