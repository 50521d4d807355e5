// kept_file_object: a file whose local changes are kept
// format: docs/formats/package-file.md
// invariant: what a user wrote is neither replaced nor removed, but where an undo brings back what
// the package had replaced
#include "kept_file_object.h"

#include "codec.h"
#include "digest.h"
#include "object_messages.h"
#include "offered_files.h"
#include "own_texts.h"
#include "package.h"
#include "present_object.h"

#include <cerrno>
#include <memory>
#include <unistd.h>

namespace km {

const char* km_kept_file::codable_name() const { return "com.ombrel.sd.cmObjects.KmKeptFile"; }

void km_kept_file::encode_object(encoder& to) const {
    km_file::encode_object(to);
    to.encode_boolean_field(222, brings_back);
    to.encode_string_field(223, undone_digest);
    if (offered_before)
        to.encode_object_field(224, offered_before.get());
}

codable* km_kept_file::decode_object(decoder& from, long stream_version) {
    km_file::decode_object(from, stream_version);
    from.decode_boolean_field(222, brings_back);
    from.decode_string_field(223, undone_digest);
    offered_before.reset(from.take_owned<km_file>(224));
    return this;
}

km_kept_file::km_kept_file(const km_kept_file& other)
    : km_file(other), brings_back(other.brings_back), undone_digest(other.undone_digest),
      offered_before(other.offered_before ? static_cast<km_file*>(other.offered_before->clone())
                                          : nullptr) {}

// What lay beside it goes the way of the file, behind it.
cm_result km_kept_file::then_beside(cm_result first,
                                    const std::function<cm_result(km_file&)>& next) {
    if (!offered_before || first == cm_command::success_retry || first == cm_command::fatal_failure)
        return result = first;
    const auto second =
        first == cm_command::success ? next(*offered_before) : offered_before->skip_data();
    return result = second == cm_command::success ? first : second;
}

void km_kept_file::set_package(cm_package* of) {
    km_file::set_package(of);
    if (offered_before)
        offered_before->set_package(of);
}

cm_result km_kept_file::add(int phase) {
    return then_beside(km_file::add(phase), [phase](km_file& beside) {
        const bool stands = phase == p_do && beside.is_identical(phase);
        return stands ? beside.skip_data() : beside.add(phase);
    });
}

cm_result km_kept_file::load(int load) {
    return then_beside(km_file::load(load), [load](km_file& one) { return one.load(load); });
}

cm_result km_kept_file::save(zipping_channel* out) {
    return then_beside(km_file::save(out), [out](km_file& one) { return one.save(out); });
}

cm_result km_kept_file::save(unzipping_channel* in, zipping_channel* out) {
    return then_beside(km_file::save(in, out),
                       [in, out](km_file& one) { return one.save(in, out); });
}

cm_result km_kept_file::skip_data() {
    return then_beside(km_file::skip_data(), [](km_file& one) { return one.skip_data(); });
}

std::string km_kept_file::beside() const { return path_bytes() + kept_suffix; }

// Empty where no file can be read: a link, say, which is a user's own, too.
std::string km_kept_file::present_digest() {
    struct stat about {};
    if (!look_at(path_bytes(), about) || !S_ISREG(about.st_mode))
        return "";
    if (std::string bytes; package && read_without_own_texts(*package, path_bytes(), bytes))
        return digest_of(bytes);
    const int in = open_for_reading(path_bytes());
    if (in < 0)
        return "";
    const std::string sum = digest_of_open_file(in);
    ::close(in);
    return sum;
}

bool km_kept_file::was_offered(const std::string& what) {
    return package && offered_digests(*package, path_bytes()).count(what);
}

bool km_kept_file::is_changed() {
    struct stat about {};
    return look_at(path_bytes(), about) && present_digest() != digest.mbcs_str();
}

bool km_kept_file::leaves_present() {
    const std::string present = present_digest();
    return is_changed() &&
           !(brings_back ? present == undone_digest.mbcs_str() : was_offered(present));
}

// This content was offered before: what became of it is the user's business.
bool km_kept_file::is_settled() {
    if (!package)
        return false;
    const auto* entry = package->catalog_entry;
    const bool commits_removal =
        package->operation_name == ustring(u"commit") && entry && entry->last_action == a_reverse;
    return commits_removal || package->operation_name == ustring(u"remove") ||
           was_offered(digest.mbcs_str());
}

int km_kept_file::is_identical(int phase) {
    struct stat about {
    }, ours{};
    if (phase == p_prepare || !well_formed())
        return km_file::is_identical(phase);
    if (!look_at(path_bytes(), about) || S_ISDIR(about.st_mode))
        return 0;
    if (brings_back)
        return km_file::is_identical(phase) &&
               (offered_before ? offered_before->is_identical(phase) : !look_at(beside(), ours));
    return is_settled() || km_file::is_identical(phase);
}

cm_object* km_kept_file::get_undo_object() {
    std::unique_ptr<cm_object> present(object_of_present(*this));
    const auto* file = dynamic_cast<const km_file*>(present.get());
    if (!file)
        return present.release();
    auto* undo = new km_kept_file;
    static_cast<km_file&>(*undo) = *file;
    undo->brings_back = 1;
    undo->undone_digest = digest;
    remember_beside(*undo);
    return undo;
}

// An older offer that the user has not looked through yet.
void km_kept_file::remember_beside(km_kept_file& undo) {
    struct stat about {};
    if (!look_at(beside(), about) || !S_ISREG(about.st_mode))
        return;
    undo.offered_before = std::make_unique<km_file>();
    undo.offered_before->set_path(ustring(beside().c_str()));
    undo.offered_before->package = package;
    undo.offered_before->take_metadata(about);
    undo.offered_before->size = about.st_size;
}

cm_result km_kept_file::drop_beside() {
    struct stat about {};
    if (!look_at(beside(), about) || S_ISDIR(about.st_mode))
        return cm_command::success;
    return remove_own(beside());
}

cm_result km_kept_file::lay_beside() {
    const std::string& bytes = path_bytes();
    const auto laid = stands_as_described(beside(), false)
                          ? pass_over_data(cm_command::success) // a second run
                          : bring(bytes.substr(bytes.find_last_of('/') + 1) + kept_suffix);
    if (laid == cm_command::success)
        tell(package, om_kept, bytes, beside());
    return laid;
}

// What stood there comes back, but not over what a user wrote since.
cm_result km_kept_file::bring_back(int phase) {
    const auto dropped = drop_beside();
    if (dropped != cm_command::success)
        return pass_over_data(dropped);
    if (!leaves_present())
        return km_file::put(phase);
    tell(package, om_modified, path_bytes());
    return pass_over_data(cm_command::success);
}

cm_result km_kept_file::put(int phase) {
    if (brings_back)
        return bring_back(phase);
    return leaves_present() ? lay_beside() : km_file::put(phase);
}

cm_result km_kept_file::put_staged(int phase) {
    const std::string from(staged_name.mbcs_str());
    if (brings_back) {
        const auto dropped = drop_beside();
        if (dropped != cm_command::success)
            return dropped;
        if (!leaves_present())
            return km_file::put_staged(phase);
        tell(package, om_modified, path_bytes());
        return drop_staged();
    }
    if (!leaves_present())
        return km_file::put_staged(phase);
    const bool waits = is_only_prepared();
    if (!stands_as_described(waits ? from : beside(), false))
        return fail(om_no_staged, path_bytes());
    if (waits && !move_name(from, beside()))
        return fail("put in place", beside(), errno);
    staged = 0;
    staged_name = ustring();
    tell(package, om_kept, path_bytes(), beside());
    return cm_command::success;
}

cm_result km_kept_file::take() {
    const auto dropped = drop_beside();
    if (dropped != cm_command::success)
        return dropped;
    if (!is_changed() || (asked_for_ && was_offered(present_digest())))
        return km_file::take();
    tell(package, om_modified, path_bytes());
    return cm_command::success;
}

// Over a changed file its data are needed whatever the base held.
cm_result km_kept_file::delta_save(pathname*, unzipping_channel* in, zipping_channel* out) {
    return in ? save(in, out) : save(out);
}

extern "C" codable* make_KmKeptFile() { return new km_kept_file; }

} // namespace km
