// text_object: something that stands in a text file of somebody else
// format: docs/formats/package-file.md
// invariants: a note of what the package puts in is on disk before the file is changed; what stood
// there before the package is taken out only where a definition asks for it
#include "text_object.h"

#include "codec.h"
#include "directory_container.h"
#include "exporter.h"
#include "importer.h"
#include "made_directories.h"
#include "object_command.h"
#include "object_messages.h"
#include "package.h"
#include "parents.h"
#include "refcounttable.h"
#include "room.h"
#include "target_root.h"
#include "temporary_name.h"

#include <cerrno>

namespace km {

namespace {
constexpr char was_absent[] = "+"; // of `former` and of the notes
}

namespace {
std::set<text_object*>& all_texts() {
    static std::set<text_object*> all;
    return all;
}
} // namespace

text_object::text_object() { all_texts().insert(this); }
text_object::text_object(const text_object& other) : cm_object(other) {
    *this = other;
    all_texts().insert(this);
}
text_object::~text_object() { all_texts().erase(this); }
const std::set<text_object*>& text_object::living() { return all_texts(); }

void text_object::encode_object(encoder& to) const {
    cm_object::encode_object(to);
    to.encode_string_field(200, path);
    to.encode_boolean_field(201, create);
    to.encode_boolean_field(202, absent);
    to.encode_boolean_field(203, restores);
    to.encode_string_field(204, former);
    to.encode_boolean_field(205, created);
    to.encode_boolean_field(206, made);
}

codable* text_object::decode_object(decoder& from, long stream_version) {
    cm_object::decode_object(from, stream_version);
    from.decode_string_field(200, path);
    from.decode_boolean_field(201, create);
    from.decode_boolean_field(202, absent);
    from.decode_boolean_field(203, restores);
    from.decode_string_field(204, former);
    from.decode_boolean_field(205, created);
    from.decode_boolean_field(206, made);
    return this;
}

void text_object::import(importer& from) {
    cm_object::import(from);
    from.get_string("path", &path);
    path = path_in_container(from, path);
    from.get_boolean("create", &create);
}

void text_object::export_(exporter& to) const {
    cm_object::export_(to);
    to.put_string("path", path);
    if (create)
        to.put_boolean("create", create);
}

const std::string& text_object::path_bytes() const {
    if (bytes_.empty() || bytes_of_ != path) {
        bytes_ = path.mbcs_str();
        bytes_of_ = path;
    }
    return bytes_;
}

std::string text_object::key() const { return path_bytes() + ": " + kind() + " " + name_of_text(); }

ustring text_object::get_name() { return ustring(key().c_str()); }

ustring text_object::get_log(int) {
    return ustring((std::string(kind()) + " \"" + shown() + "\" in " + path_bytes()).c_str());
}

bool text_object::well_formed() const {
    const std::string& bytes = path_bytes();
    return !bytes.empty() && bytes[0] == '/' && bytes.find("$(") == std::string::npos &&
           fault().empty();
}

bool text_object::rolls_back() const {
    return package && package->operation_phase == ustring(u"rollback");
}

cm_result text_object::fail(const char* what, const std::string& of, int error) {
    return fail(text_fault{what, of, error, {}, false});
}

cm_result text_object::fail(const text_fault& fault) {
    if (fault.what)
        tell_errno(package, fault.what, fault.path, fault.error);
    else
        tell(package, om_not_text, fault.path, fault.reason);
    return result = fault.passing ? cm_command::temporary_failure : cm_command::failure;
}

cm_result text_object::refuse_definition() {
    const std::string reason = fault();
    if (reason.empty())
        tell(package, om_undefined, path_bytes());
    else
        tell(package, om_text_fault, path_bytes(), reason);
    return result = cm_command::failure;
}

void text_object::tell_of(long message) {
    tell(package, static_cast<object_message>(message), path_bytes(),
         std::string("the ") + kind() + " \"" + shown() + "\"");
}

void text_object::tell_gone() { tell_of(om_text_gone); }

bool text_object::noted(const std::string& of, std::string* what) const {
    return package && text_noted_by(*package, of, what);
}

cm_result text_object::note(const std::string& of, const std::string& what) {
    return package && !note_text(*package, of, what) ? fail("note a text of", path_bytes(), errno)
                                                     : cm_command::success;
}

cm_result text_object::drop_note(const std::string& of) {
    return package && !drop_text_note(*package, of)
               ? fail("drop the note of a text of", path_bytes(), errno)
               : cm_command::success;
}

void text_object::settle() {
    std::string was;
    if (noted(key(), &was))
        former = ustring(was.c_str());
    created = created || noted(key_of_file());
    made = made || (!frame().empty() && noted(key_of_frame()));
}

bool text_object::takes_place_of(text_object& old) {
    if (slot() != old.slot() || path != old.path || !old.is_own())
        return false;
    old.settle();
    former = old.former;
    created = created || old.created;
    made = made || old.made;
    return true;
}

bool text_object::is_own() { return !former.empty() || noted(key()); }

int text_object::forget_if_gone() {
    former = ustring();
    return drop_note(key()) == cm_command::success;
}

bool text_object::read_quietly(text_bytes& out) const {
    text_target at;
    return !at.open(path_bytes(), out) && at.is_there();
}

int text_object::exists(int phase) {
    if (!well_formed())
        return 0;
    if (phase == p_prepare)
        return 1; // nothing is staged: the commit does it all
    text_target at;
    return at.find(path_bytes()) || at.is_there();
}

int text_object::is_identical(int phase) {
    if (!well_formed())
        return 0;
    if (phase == p_prepare)
        return 1;
    text_bytes text;
    if (!read_quietly(text))
        return absent && !exists(phase);
    // What comes back with its file must be noted as the package's again.
    const bool is_to_be_noted = restores && !absent && !former.empty() && !noted(key());
    return stands(text) != (absent != 0) && !is_to_be_noted;
}

cm_result text_object::can_read() {
    text_target at;
    text_bytes text;
    const auto fault = at.open(path_bytes(), text);
    return fault ? fail(fault) : result = cm_command::success;
}

cm_object* text_object::get_undo_object() {
    text_target at;
    text_bytes text;
    if (const auto fault = at.open(path_bytes(), text)) {
        fail(fault);
        return nullptr;
    }
    auto* copy = static_cast<text_object*>(clone());
    copy->restores = 1;
    copy->absent = 1;
    copy->settle();
    remember(text, *copy);
    return copy;
}

namespace {
template <class Test> bool any_object(cm_composite_command& tree, const Test& test) {
    for (list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto* command = all.nextElement();
        if (auto* inner = dynamic_cast<cm_composite_command*>(command)) {
            if (any_object(*inner, test))
                return true;
        } else if (auto* add = dynamic_cast<cm_add_object*>(command)) {
            if (add->object && test(*add->object))
                return true;
        }
    }
    return false;
}
} // namespace

// A file that another command of the package puts there.
bool text_object::comes_with_package(const std::string& of) const {
    return package && any_object(*package, [&](cm_object& object) {
               return !dynamic_cast<text_object*>(&object) && object.get_name().mbcs_str() == of;
           });
}

cm_result text_object::check_missing(text_target& at) {
    if (absent || comes_with_package(path_bytes()) || comes_with_package(at.path()))
        return result;
    if (!create)
        return fail("edit", path_bytes(), ENOENT);
    std::string nearest = at.path();
    const place where = nearest_place(nearest);
    if (nearest == at.path())
        return check_file(at, 0);
    if (!where.found())
        return fail("reach", where.parent, where.error);
    return may_write_in(where) ? result : fail("write in", where.parent, errno);
}

cm_result text_object::check_file(text_target& at, long more) {
    if (const auto fault = at.may_write())
        return fail(fault);
    if (const auto fault = at.lock())
        return fail(fault);
    const place where = locate(at.path());
    std::string needed, free_bytes;
    if (!where.found() ||
        note_room(where.directory, at.size() + more, at.size(), true, needed, free_bytes))
        return result;
    if (errno != ENOSPC)
        return fail("ask for the room of", where.parent, errno);
    tell(package, om_no_room, where.parent, needed, free_bytes);
    return result = cm_command::temporary_failure;
}

cm_result text_object::check_add(int phase) {
    result = cm_command::success;
    if (phase == p_commit_before_reboot || is_quiet_phase(phase))
        return result;
    if (!well_formed())
        return refuse_definition();
    text_target at;
    text_bytes text;
    if (const auto fault = at.open(path_bytes(), text))
        return fail(fault);
    if (!at.is_there())
        return check_missing(at);
    const bool is_done = stands(text) != (absent != 0);
    return is_done ? result : check_file(at, static_cast<long>(name_of_text().size()) + 2);
}

cm_result text_object::check_remove(int phase) {
    result = cm_command::success;
    if (rolls_back() || is_quiet_phase(phase))
        return result;
    if (!well_formed())
        return refuse_definition();
    text_target at;
    text_bytes text;
    if (const auto fault = at.open(path_bytes(), text))
        return fail(fault);
    if (!at.is_there() || !stands(text) || (!asked_for_ && !is_own()))
        return result;
    return check_file(at, 0);
}

cm_result text_object::add(int phase) { return work(phase, true); }
cm_result text_object::remove(int phase) { return work(phase, false); }

cm_result text_object::work(int phase, bool puts) {
    result = cm_command::success;
    if (!well_formed())
        return is_quiet_phase(phase) ? result : refuse_definition();
    switch (phase) {
    case p_do:
    case p_commit:
    case p_commit_after_reboot:
        return edit(puts);
    case p_prepare:
        return puts ? check_add(phase) : check_remove(phase);
    case p_do_cleanup:
    case p_prepare_cleanup:
    case p_commit_cleanup:
        drop_temporary();
        return result;
    default:
        return result; // the second pass of a commit does it all
    }
}

void text_object::drop_temporary() {
    if (!temporary_may_be_left_)
        return;
    text_target at;
    if (!at.find(path_bytes()))
        at.drop(temporary_name_of(at.path(), index_, package));
    temporary_may_be_left_ = false;
}

cm_result text_object::edit(bool puts) {
    text_target at;
    text_bytes text;
    if (const auto fault = at.open(path_bytes(), text))
        return fail(fault);
    if (!at.is_there() && puts && !absent && !create)
        return fail("edit", path_bytes(), ENOENT);
    if (puts && !at.is_there() && !absent)
        if (const auto fault = make_noted_parents(package, at.path()))
            return fail(fault.what, fault.path, fault.error);
    if (const auto fault = at.lock())
        return fail(fault);
    return !puts ? take(at, text) : absent || restores ? put_back(at, text) : put(at, text);
}

cm_result text_object::write(text_target& at, const text_bytes& text) {
    temporary_may_be_left_ = true;
    if (const auto fault = at.write(text.bytes(), temporary_name_of(at.path(), index_, package)))
        return fail(fault);
    temporary_may_be_left_ = false;
    return cm_command::success;
}

// What the package makes around its text goes with the last text in it.
cm_result text_object::note_surroundings(const text_target& at, const text_bytes& text) {
    if (!at.is_there()) {
        if (note(key_of_file(), was_absent) != cm_command::success)
            return result;
        created = 1;
    }
    if (!frame().empty() && !frame_stands(text)) {
        if (note(key_of_frame(), was_absent) != cm_command::success)
            return result;
        made = 1;
    }
    return cm_command::success;
}

// What it had made by then it has made again, whoever puts the file back.
cm_result text_object::note_own_surroundings() {
    if (created && note(key_of_file(), was_absent) != cm_command::success)
        return result;
    return made && !frame().empty() ? note(key_of_frame(), was_absent) : cm_command::success;
}

cm_result text_object::put(text_target& at, text_bytes& text) {
    if (stands(text))
        return cm_command::success; // it was there, or a run that was cut did it
    text_bytes edited = text;
    std::string replaced;
    put_into(edited, replaced);
    if (!former.empty())
        replaced = former.mbcs_str(); // what went for an older version's text
    if (note_surroundings(at, text) != cm_command::success ||
        note(key(), replaced) != cm_command::success)
        return result;
    noted(key(), &replaced); // what stood there first counts
    if (write(at, edited) != cm_command::success)
        return result;
    former = ustring(replaced.c_str());
    return cm_command::success;
}

// A state of before. Where the text was the package's own then it is again.
cm_result text_object::put_back(text_target& at, text_bytes& text) {
    if (takes_own_out(text) && at.is_there() && counted_by_others()) {
        tell_of(om_text_held);
        return cm_command::success;
    }
    if (absent)
        return take_all(at, text);
    const std::string was = former.mbcs_str();
    if (!was.empty() &&
        (note(key(), was) != cm_command::success || note_own_surroundings() != cm_command::success))
        return result;
    if (!stands(text)) {
        std::string replaced;
        if (note_surroundings(at, text) != cm_command::success)
            return result;
        put_into(text, replaced);
        if (write(at, text) != cm_command::success)
            return result;
    }
    return was.empty() ? drop_note(key()) : cm_command::success;
}

cm_result text_object::take(text_target& at, text_bytes& text) {
    if (at.is_there() && stands(text) && !asked_for_ && !is_own()) {
        tell_of(om_text_before);
        return cm_command::success;
    }
    if ((!at.is_there() || (!stands(text) && !takes_changed_)) && (asked_for_ || is_own()))
        tell_gone();
    return take_all(at, text);
}

std::string text_object::what_it_replaced() const {
    std::string was = former.mbcs_str();
    noted(key(), &was);
    return was;
}

bool text_object::has_own_frame() const {
    return !frame().empty() && (made || noted(key_of_frame()));
}

void text_object::take_out_own(text_bytes& in) { take_out(in, what_it_replaced()); }

void text_object::take_out_own_frame(text_bytes& in) {
    if (has_own_frame())
        take_frame(in);
}

cm_result text_object::remove_parents(const std::string& of) {
    const auto fault = package ? remove_noted_parents(*package, of) : parent_fault{};
    return fault ? fail(fault.what, fault.path, fault.error) : cm_command::success;
}

cm_result text_object::take_all(text_target& at, text_bytes& text) {
    const bool own_frame = has_own_frame();
    bool frame_goes = false, file_goes = false;
    if (at.is_there() && take_out(text, what_it_replaced())) {
        if (own_frame) {
            take_frame(text);
            frame_goes = !frame_stands(text);
        }
        file_goes = text.empty() && (created || noted(key_of_file()));
        if (file_goes) {
            if (const auto fault = at.unlink())
                return fail(fault);
            if (remove_parents(at.path()) != cm_command::success)
                return result;
        } else if (write(at, text) != cm_command::success) {
            return result;
        }
    }
    former = ustring();
    if (drop_note(key()) == cm_command::success && (frame_goes || file_goes))
        drop_note(key_of_frame());
    if (file_goes || !at.is_there())
        drop_note(key_of_file());
    return result;
}

bool text_object::counted_by_others() {
    auto* table = package ? package->reference_table : nullptr;
    if (!table)
        return false;
    ustring name, version;
    set_package_name_and_version(*package, name, version);
    const ustring of = get_name();
    return table->get_ref_count(of) > table->get_ref_count(of, name, version);
}

} // namespace km
