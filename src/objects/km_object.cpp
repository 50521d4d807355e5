// km_object: what files, directories and links have in common
// format: docs/formats/package-file.md
// invariants: every operation may run a second time; what is replaced stands whole, old or new
#include "km_object.h"

#include "accounts.h"
#include "base/msg_supp.h"
#include "base/uxl.h"
#include "codec.h"
#include "directory_container.h"
#include "early_flush.h"
#include "exporter.h"
#include "importer.h"
#include "made_directories.h"
#include "object_messages.h"
#include "parents.h"
#include "plain_text.h"
#include "package.h"
#include "present_object.h"
#include "temporary_name.h"
#include "trclog.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace km {

bool is_privileged() { return ::geteuid() == 0; }

namespace {
bool leftovers_expected = true;
}

void expect_leftovers(bool expected) { leftovers_expected = expected; }

void km_object::encode_object(encoder& to) const {
    cm_object::encode_object(to);
    to.encode_string_field(200, path);
    to.encode_integer_field(201, mode);
    to.encode_integer_field(202, owner);
    to.encode_integer_field(203, group);
    to.encode_string_field(204, mtime);
    to.encode_string_field(205, ustring(std::to_string(size).c_str()));
    to.encode_string_field(206, digest);
    to.encode_integer_field(207, sequence);
    to.encode_boolean_field(208, staged);
    to.encode_string_field(209, staged_name);
    to.encode_boolean_field(210, created);
}

namespace {
// What strtol makes of the text, but never below 0.
long size_of(const ustring& digits) {
    const char16_t* at = digits.c_str();
    unsigned long value = 0;
    if (take_number(at, value) && !*at && value <= static_cast<unsigned long>(LONG_MAX))
        return static_cast<long>(value);
    return std::max(std::strtol(digits.mbcs_str(), nullptr, 10), 0L);
}
} // namespace

codable* km_object::decode_object(decoder& from, long stream_version) {
    cm_object::decode_object(from, stream_version);
    from.decode_string_field(200, path);
    from.decode_integer_field(201, mode);
    from.decode_integer_field(202, owner);
    from.decode_integer_field(203, group);
    from.decode_string_field(204, mtime);
    ustring bytes;
    from.decode_string_field(205, bytes);
    size = size_of(bytes);
    mode &= 07777;
    from.decode_string_field(206, digest);
    from.decode_integer_field(207, sequence);
    from.decode_boolean_field(208, staged);
    from.decode_string_field(209, staged_name);
    from.decode_boolean_field(210, created);
    return this;
}

namespace {
void refuse_value(importer& from, const char* key, const ustring& value) {
    if (from.messages)
        from.messages->add(object_catalog, static_cast<long>(om_bad_value),
                           std::to_string(from.line_number()).c_str(), key, value.mbcs_str());
    from.flags = bad_value;
}

// Octal digits, whatever stands in front; twelve bits.
bool read_mode(const ustring& text, std::int32_t& mode) {
    const std::string digits = text.mbcs_str();
    if (digits.empty() || digits.size() > 8 ||
        digits.find_first_not_of("01234567") != std::string::npos)
        return false;
    const long value = std::strtol(digits.c_str(), nullptr, 8);
    mode = static_cast<std::int32_t>(value);
    return value <= 07777;
}

bool import_number(importer& from, const char* key, bool (*number_of)(const std::string&, long&),
                   std::int32_t& into) {
    ustring text;
    if (!from.get_string(key, &text))
        return false;
    long number = 0;
    if (number_of(text.mbcs_str(), number))
        into = static_cast<std::int32_t>(number);
    else
        refuse_value(from, key, text);
    return true;
}
} // namespace

void km_object::import(importer& from) {
    cm_object::import(from);
    from.get_string("path", &path);
    path = path_in_container(from, path);
    from.get_string("source", &source_text);
    import_rights(from);
}

void km_object::import_rights(importer& from) {
    ustring octal;
    given_.mode = from.get_string("mode", &octal);
    if (given_.mode && !read_mode(octal, mode)) {
        mode = 0;
        refuse_value(from, "mode", octal);
    }
    given_.owner = import_number(from, "owner", user_number, owner);
    given_.group = import_number(from, "group", group_number, group);
}

void km_object::export_(exporter& to) const {
    cm_object::export_(to);
    to.put_string("path", path);
    if (!source_text.empty())
        to.put_string("source", source_text);
    const bool loaded = !mtime.empty();
    char octal[8];
    std::snprintf(octal, sizeof octal, "%04o", static_cast<unsigned>(mode) & 07777U);
    if (loaded || given_.mode)
        to.put_string("mode", ustring(octal));
    if (loaded || given_.owner)
        to.put_string("owner", ustring(std::to_string(owner).c_str()));
    if (loaded || given_.group)
        to.put_string("group", ustring(std::to_string(group).c_str()));
}

namespace {
// Whether the bytes are the characters of the text, as with ASCII.
bool are_its_units(const std::string& bytes, const ustring& text) {
    if (bytes.size() != text.length())
        return false;
    const char16_t* units = text.c_str();
    char16_t differ = 0; // no wider: as many as possible are compared at a time
    for (size_t i = 0; i < bytes.size(); ++i)
        differ = static_cast<char16_t>(differ | (static_cast<unsigned char>(bytes[i]) ^ units[i]));
    return differ == 0;
}
} // namespace

// Asked for many times, while the text may change. Most texts need no copy to be compared with.
const std::string& km_object::path_bytes() const {
    if (!bytes_.empty() && (bytes_of_.empty() ? are_its_units(bytes_, path) : bytes_of_ == path))
        return bytes_;
    const size_t units = uxl_wcslen(path.c_str());
    bytes_.resize(uxl_wcsntombs(0, nullptr, path.c_str(), units, 0));
    uxl_wcsntombs(0, bytes_.data(), path.c_str(), units, bytes_.size());
    bytes_of_ = are_its_units(bytes_, path) ? ustring() : path;
    return bytes_;
}

bool km_object::well_formed() const {
    const std::string& bytes = path_bytes();
    return !bytes.empty() && bytes[0] == '/' && bytes.find("$(") == std::string::npos;
}

std::string km_object::temporary_name() const {
    return temporary_name_of(path_bytes(), index_, package);
}

cm_result km_object::fail(const char* what, const std::string& of, int error) {
    tell_errno(package, what, of, error);
    const bool passing = error == ENOSPC || error == EDQUOT || error == EBUSY || error == ETXTBSY ||
                         error == EAGAIN || error == EMFILE || error == ENFILE;
    return result = passing ? cm_command::temporary_failure : cm_command::failure;
}

cm_result km_object::fail(long message, const std::string& of) {
    tell(package, static_cast<object_message>(message), of);
    return result = cm_command::failure;
}

namespace {
ustring time_text_of(const timespec& when) {
    char text[40];
    std::snprintf(text, sizeof text, "%" PRId64 ".%09ld", static_cast<int64_t>(when.tv_sec),
                  when.tv_nsec);
    return ustring(text);
}
} // namespace

void km_object::take_metadata(const struct stat& about) {
    if (!given_.mode)
        mode = static_cast<std::int32_t>(about.st_mode & 07777);
    if (!given_.owner)
        owner = static_cast<std::int32_t>(about.st_uid);
    if (!given_.group)
        group = static_cast<std::int32_t>(about.st_gid);
    mtime = time_text_of(about.st_mtim);
}

void km_object::take_default_metadata(std::int32_t default_mode) {
    if (!mtime.empty())
        return; // it was loaded before
    if (!given_.mode)
        mode = default_mode;
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    mtime = time_text_of({now.tv_sec, 0});
}

namespace {
constexpr long nanoseconds_of_a_second = 1000000000;

// "seconds.nanoseconds" as this library writes it. False: the text is no such.
bool is_plain_time(const ustring& text, timespec& when) {
    const char16_t* at = text.c_str();
    unsigned long seconds = 0, nanoseconds = 0;
    if (!take_number(at, seconds) || *at != u'.' || !take_number(++at, nanoseconds) || *at ||
        seconds > static_cast<unsigned long>(LONG_MAX) || nanoseconds >= nanoseconds_of_a_second)
        return false;
    when = {static_cast<time_t>(seconds), static_cast<long>(nanoseconds)};
    return true;
}
} // namespace

timespec km_object::modification_time() const {
    timespec when{};
    if (is_plain_time(mtime, when))
        return when;
    const std::string text = mtime.mbcs_str();
    char* dot = nullptr;
    when.tv_sec = std::strtoll(text.c_str(), &dot, 10);
    when.tv_nsec = dot && *dot == '.' ? std::strtol(dot + 1, nullptr, 10) : 0;
    if (when.tv_nsec < 0 || when.tv_nsec >= nanoseconds_of_a_second)
        when.tv_nsec = 0;
    return when;
}

bool km_object::same_rights(const struct stat& about) const {
    if (static_cast<std::int32_t>(about.st_mode & 07777) != mode)
        return false;
    return (static_cast<std::int32_t>(about.st_uid) == owner &&
            static_cast<std::int32_t>(about.st_gid) == group) ||
           !is_privileged();
}

cm_result km_object::make_parents(const std::string& of) {
    const auto fault = make_noted_parents(package, of);
    return fault ? fail(fault.what, fault.path, fault.error) : cm_command::success;
}

namespace {
struct emptied {
    std::string directory;          // out of which the last file may have gone
    std::string cleaned;            // the one that a cleanup saw last,
    const cm_package* by = nullptr; // and whose
};

emptied& last_emptied() {
    static emptied only;
    return only;
}

std::string parent_of(const std::string& path) { return path.substr(0, path.find_last_of('/')); }

// What others put into a directory, or made of it, is a reason to leave it, and no failure.
bool is_reason_to_stay(int error) {
    return error == ENOTEMPTY || error == EEXIST || error == EBUSY || error == ENOTDIR ||
           error == EACCES || error == EPERM;
}
} // namespace

cm_result km_object::remove_made_parents(const std::string& of) {
    emptied& last = last_emptied();
    const size_t slash = of.find_last_of('/');
    if (last.directory.size() == slash && of.starts_with(last.directory))
        return cm_command::success;
    if (last.directory == of)
        last.directory.clear(); // it is gone itself
    const std::string parent = parent_of(of);
    const cm_result others = leave_directory(parent);
    last.by = nullptr;
    if (package && !parent.empty() && made_by(*package, parent))
        last.directory = parent;
    return others;
}

// Nearly all of a directory's files go one after the other, and only behind the last one it can go
// itself: it is tried when the walk comes to one that does not lie in it, and at the end.
cm_result km_object::leave_directory(const std::string& for_another) {
    std::string parent;
    parent.swap(last_emptied().directory);
    const auto is_left = [&] {
        return !for_another.starts_with(parent) || for_another[parent.size()] != '/';
    };
    while (package && !parent.empty() && is_left() && made_by(*package, parent)) {
        if (!remove_name(parent, true))
            return is_reason_to_stay(errno) ? cm_command::success
                                            : fail("remove the directory", parent, errno);
        parent = parent_of(parent);
    }
    return cm_command::success;
}

// A run that was cut behind the last file and did not come to its directory ends here.
cm_result km_object::clean_parents() {
    emptied& last = last_emptied();
    const cm_result others = leave_directory();
    std::string parent = parent_of(path_bytes());
    if (others != cm_command::success || (last.by == package && last.cleaned == parent))
        return others;
    last.by = package;
    last.cleaned = parent;
    last.directory.swap(parent);
    return leave_directory();
}

cm_result km_object::remove_own(const std::string& name) {
    if (remove_name(name, false))
        return cm_command::success;
    return fail("remove", name, errno);
}

void km_object::drop_temporary() {
    if (!(made_temporary_ || leftovers_expected) || !well_formed())
        return;
    end_temporary();
    const place where = locate(path_bytes());
    if (where.found() || (where.error != ENOENT && where.error != ENOTDIR))
        remove_name(where.parent + "/" + temporary_name(), false);
}

// Whether the object could be put in place: the nearest parent that is there must take names.
namespace {
// Parents that the run will make, from the missing one that is nearest to what is there. The files
// of one directory all say the same.
void expect_parents(const cm_package& package, std::string parent, const std::string& nearest) {
    static std::pair<const cm_package*, std::string> last;
    if (last.first == &package && last.second == parent_of(parent))
        return;
    last = {&package, parent_of(parent)};
    while (parent.size() > nearest.size()) {
        parent.erase(parent.find_last_of('/'));
        expect_made_directory(package, parent);
    }
}
} // namespace

cm_result km_object::check_add(int phase) {
    result = cm_command::success;
    if (phase == p_commit_before_reboot || is_quiet_phase(phase))
        return result;
    if (!well_formed())
        return fail(om_undefined, path_bytes());
    std::string nearest = path_bytes();
    const place where = nearest_place(nearest);
    if (!where.found())
        return fail("reach", where.parent.empty() ? path_bytes() : where.parent, where.error);
    if (!may_write_in(where))
        return fail("write in", where.parent, errno);
    if (package)
        expect_parents(*package, path_bytes(), nearest);
    struct stat about {};
    const bool present = nearest == path_bytes() && look_at(path_bytes(), about);
    checked_phase_ = phase;
    return check_target(where, present ? &about : nullptr);
}

cm_result km_object::check_remove(int phase) {
    result = cm_command::success;
    const bool rolls_back = package && says(package->operation_phase, u"rollback");
    if (rolls_back || is_quiet_phase(phase))
        return result;
    if (!well_formed())
        return fail(om_undefined, path_bytes());
    const place where = locate(path_bytes());
    if (!where.found())
        return where.error == ENOENT || where.error == ENOTDIR
                   ? cm_command::success
                   : fail("reach", where.parent, where.error);
    if (!may_write_in(where))
        return fail("write in", where.parent, errno);
    return result;
}

cm_result km_object::add(int phase) {
    result = cm_command::success;
    if (!well_formed())
        return is_quiet_phase(phase) ? result : fail(om_undefined, path_bytes());
    switch (phase) {
    case p_do:
        return result = put(phase);
    case p_prepare:
        return result = is_stageable() ? stage() : cm_command::success;
    case p_commit:
    case p_commit_after_reboot:
        return result = is_stageable() ? put_staged(phase) : put(phase);
    case p_commit_before_reboot:
        return result; // the second pass does it all
    case p_do_cleanup:
        flush_early();
        drop_temporary();
        return result = finish_add();
    case p_prepare_cleanup:
        flush_early();
        drop_temporary(); // a staged copy that is whole waits for the commit
        return result;
    case p_commit_cleanup:
        drop_staged();
        drop_temporary();
        return result = was_undone() ? cm_command::success : finish_add();
    default:
        return result;
    }
}

cm_result km_object::remove(int phase) {
    result = cm_command::success;
    if (!well_formed())
        return is_quiet_phase(phase) ? result : fail(om_undefined, path_bytes());
    const auto is_in = [this](const char16_t* word) {
        return package && says(package->operation_phase, word);
    };
    switch (phase) {
    case p_do:
    case p_commit:
    case p_commit_after_reboot:
        return result = take();
    case p_prepare:
        // A rollback takes the staged copy back; a remove that is only prepared changes nothing.
        if (!is_in(u"rollback"))
            return result = check_remove(phase);
        drop_unnoted();
        return result = drop_staged();
    case p_prepare_cleanup:
        if (is_in(u"rollback_cleanup"))
            drop_staged();
        drop_temporary();
        return result;
    case p_do_cleanup:
    case p_commit_cleanup:
        drop_temporary();
        return result = clean_parents();
    default:
        return result;
    }
}

// The commit of a prepared undo cleans up behind the package that it took back.
bool km_object::was_undone() const {
    return package && !package->is_backup_package && package->catalog_entry &&
           package->catalog_entry->current_cm_status == cs_initial;
}

int km_object::exists(int phase) {
    struct stat about {};
    if (!well_formed())
        return 0;
    if (phase == p_prepare)
        return !is_stageable() || is_only_prepared();
    return look_at(path_bytes(), about);
}

int km_object::is_identical(int phase) {
    if (!well_formed())
        return 0;
    if (phase == p_prepare)
        return !is_stageable() || (staged && stands_as_described(staged_name.mbcs_str(), false));
    return stands_as_described(path_bytes(), true);
}

cm_result km_object::can_read() { return can_read_present(*this); }

cm_object* km_object::get_undo_object() { return object_of_present(*this); }

std::string km_object::staging_directory() {
    std::string nearest = path_bytes();
    const place where = nearest_place(nearest);
    if (!where.found()) {
        fail("reach", path_bytes(), where.error);
        return {};
    }
    return where.parent == "/" ? "/" : where.parent + "/";
}

void km_object::note_staged(const std::string& name) {
    staged = 1;
    staged_name = ustring(name.c_str());
}

bool km_object::is_only_prepared() const {
    struct stat about {};
    return staged && !staged_name.empty() && look_at(staged_name.mbcs_str(), about);
}

cm_result km_object::drop_staged() {
    const std::string name = staged_name.mbcs_str();
    // Nobody comes back to a cleanup: what fails for a moment is tried twice.
    if (staged && !name.empty() && !remove_name(name, false) && !remove_name(name, false))
        return fail("remove", name, errno);
    staged = 0;
    staged_name = ustring();
    return cm_command::success;
}

// What a prepare that was cut left: its profile knows of no copy, but the name tells itself.
void km_object::drop_unnoted() {
    if (!is_stageable())
        return;
    const std::string& bytes = path_bytes();
    const std::string name = temporary_name();
    for (size_t slash = bytes.find_last_of('/'); slash != std::string::npos;
         slash = slash ? bytes.find_last_of('/', slash - 1) : std::string::npos) {
        const std::string base = bytes.substr(0, slash + 1) + name;
        remove_name(base, false);
        remove_name(base + staged_mark, false);
    }
}

cm_result km_object::put_staged(int) {
    const std::string& bytes = path_bytes();
    const auto is_in_place = [&] { return stands_as_described(bytes, true); };
    if (!staged)
        return is_in_place() ? cm_command::success : fail(om_no_staged, bytes);
    const std::string from(staged_name.mbcs_str());
    // Not there: a commit that was cut behind the rename.
    if (is_only_prepared()) {
        if (!stands_as_described(from, false))
            return fail(om_no_staged, bytes);
        const auto parents = make_parents(bytes);
        if (parents != cm_command::success)
            return parents;
        if (!move_name(from, bytes))
            return fail("put in place", bytes, errno);
        was_placed();
    } else if (!is_in_place()) {
        return fail(om_no_staged, bytes);
    }
    staged = 0;
    staged_name = ustring();
    return cm_command::success;
}

// A verify and an undo ask what is there, not what may be replaced. Something of another kind is no
// newer state of this object: it stands in its way, and the check says so.
int km_object::is_newer() {
    if (package &&
        (says(package->operation_name, u"verify") || says(package->operation_name, u"undo")))
        return 0;
    struct stat about {};
    return well_formed() && look_at(path_bytes(), about) && is_same_kind(about) &&
           about.st_mtim.tv_sec > modification_time().tv_sec;
}

long km_object::load_modification_time() {
    struct stat about {};
    return well_formed() && look_at(path_bytes(), about) ? about.st_mtim.tv_sec : 0;
}

cm_result km_object::load(int) { return result = cm_command::success; }

ustring km_object::get_log(int) {
    ustring text = path;
    if (size)
        text += (" (" + std::to_string(size) + " bytes)").c_str();
    return text;
}

} // namespace km
