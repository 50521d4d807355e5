// object_commands: the commands that put the objects of this library in place
// format: docs/formats/package-file.md
// invariant: a command always has an object of its class
#include "object_commands.h"

#include "command_on.h"
#include "directory_object.h"
#include "exporter.h"
#include "file_object.h"
#include "hard_link_object.h"
#include "importer.h"
#include "kept_file_object.h"
#include "link_object.h"
#include "looks_ahead.h"
#include "object_messages.h"
#include "package.h"
#include "stop_request.h"
#include "target_root.h"
#include "trclog.h"

#include <typeinfo>

namespace km {

namespace {
void tell_index(km_object* object, int index) {
    if (object)
        object->set_index(index);
}
} // namespace

namespace {
// The base reads it, and leaves its writing to the classes.
void export_scope(const cm_command& command, exporter& to) {
    constexpr int per_user = 2;
    if (command.scope == per_user)
        to.put_boolean("is_per_user", 1);
}
} // namespace

void km_add_command::import(importer& from) { cm_add_object::import(from); }

void km_add_command::export_(exporter& to) const {
    if (!*stanza())
        return; // it stands in the text of another one
    to.begin_stanza(stanza());
    cm_add_object::export_(to);
    export_scope(*this, to);
    to.end_stanza();
}

namespace {
void take_look(const cm_package* package, const km_object* object, int action, int phase,
               bool works) {
    if (!package || !object || action != a_reverse || (phase != p_do && phase != p_commit))
        return;
    const auto* file = typeid(*object) == typeid(km_file) ? static_cast<const km_file*>(object)
                                                          : dynamic_cast<const km_file*>(object);
    ahead_look found;
    if (file && take_look_ahead(*package, *file, works, found))
        keep_look(file->path_bytes(), found.about, found.held);
}
} // namespace

km_object* km_add_command::own() {
    if (asked_ != object) {
        asked_ = object;
        own_ = dynamic_cast<km_object*>(object);
    }
    return own_;
}

void km_add_command::can_execute(int action, int phase) {
    const one_look for_all_questions;
    tell_index(own(), command_index);
    take_look(package, own(), action, phase, false);
    cm_add_object::can_execute(action, phase);
}

void km_add_command::can_backup(int action) {
    const one_look for_all_questions;
    cm_add_object::can_backup(action);
}

namespace {
// Between two commands of the phases that do the work. What was begun ends, and cleanup always
// runs.
// What a command is switched off for stays out of its profile.
class switched_off {
  public:
    switched_off(cm_add_object& of, bool off) : of_(of), off_(off), kept_(of.is_effective) {
        if (off_)
            of_.is_effective = 0;
    }
    ~switched_off() {
        if (off_)
            of_.is_effective = kept_;
    }
    switched_off(const switched_off&) = delete;
    switched_off& operator=(const switched_off&) = delete;

  private:
    cm_add_object& of_;
    bool off_;
    std::int32_t kept_;
};

// The result of a command that is not run because somebody asked for that; else success.
cm_result stops_here(cm_package* package, int action, int phase) {
    const bool works = phase == p_do || phase == p_prepare || phase == p_commit;
    if (!works || (action != a_execute && action != a_reverse))
        return cm_command::success;
    if (take_failure_request())
        return cm_command::failure;
    return package && stop_requested() ? result_of_stop(*package, phase) : cm_command::success;
}
} // namespace

void km_add_command::do_execute(int action, int phase) {
    if ((result = stops_here(package, action, phase)) != success)
        return;
    const one_look for_all_questions;
    tell_index(own(), command_index);
    take_look(package, own(), action, phase, true);
    if (action == a_reverse && takes_back_prepared(phase))
        return;
    tell_what_stays(action, phase);
    if (leaves_existing(action, phase)) {
        is_effective = 0; // as after an install in one run: no remove takes it away
        result = object->skip_data();
        set_to_be_logged(0);
        return;
    }
    const switched_off off(*this, is_left(action));
    cm_add_object::do_execute(action, phase);
}

// A prepare that meets what it must not replace; its profile is the last that is written before a
// remove.
bool km_add_command::leaves_existing(int action, int phase) {
    return object && action == a_execute && phase == p_prepare && !replace_if_existing &&
           !object->is_shared && object->exists(p_do);
}

bool km_add_command::is_left(int action) const {
    return stays_for_others && (action == a_reverse || action == a_verify_reverse);
}

// What was only prepared has put nothing in place: what stands there is somebody else's, also for
// a second run.
bool km_add_command::takes_back_prepared(int phase) {
    auto* on = own();
    if (!on || (phase != p_do && phase != p_commit) || !on->is_only_prepared())
        return false;
    result = on->drop_staged();
    if (result == success)
        is_effective = 0;
    return true;
}

// The engine passes over such an object in silence; a person would take it for the package's.
void km_add_command::tell_what_stays(int action, int phase) {
    auto* on = own();
    if (!on || !is_effective || is_left(action) || phase != p_do || !on->exists(phase) ||
        on->is_identical(phase))
        return;
    if (action == a_execute && !replace_if_newer && on->is_newer())
        tell(package, om_newer, on->path_bytes());
    const bool was_there_before = dynamic_cast<km_directory*>(on) && !on->created;
    if (action == a_reverse && !remove_if_modified && !on->is_shared && !was_there_before)
        tell(package, om_modified, on->path_bytes());
}

// The walk calls this only for a command that it passes over.
void km_add_command::skip_data() {
    cm_add_object::skip_data();
    if (result == success)
        is_effective = 0;
}

// The undo is written as classes of this library, so that it is read back by them.
cm_command* km_add_command::get_undo_command(int action) {
    const one_look for_all_questions;
    tell_index(own(), command_index);
    const switched_off off(*this, is_left(action));
    return cm_add_object::get_undo_command(action);
}

void km_add_command::do_sharing_control(int action, int phase) {
    do_default_sharing_control(action, phase);
}

void km_remove_command::import(importer& from) { cm_remove_object::import(from); }

void km_remove_command::export_(exporter& to) const {
    if (!*stanza())
        return;
    to.begin_stanza(stanza());
    cm_remove_object::export_(to);
    export_scope(*this, to);
    to.end_stanza();
}

void km_remove_command::can_execute(int action, int phase) {
    tell_index(dynamic_cast<km_object*>(object), command_index);
    cm_remove_object::can_execute(action, phase);
}

void km_remove_command::do_execute(int action, int phase) {
    if ((result = stops_here(package, action, phase)) != success)
        return;
    tell_index(dynamic_cast<km_object*>(object), command_index);
    const bool asked_for = package && !package->is_backup_package;
    if (auto* directory = dynamic_cast<km_directory*>(object))
        directory->set_asked_for(asked_for);
    if (auto* kept = dynamic_cast<km_kept_file*>(object))
        kept->set_asked_for(asked_for);
    cm_remove_object::do_execute(action, phase);
}

cm_command* km_remove_command::get_undo_command(int action) {
    tell_index(dynamic_cast<km_object*>(object), command_index);
    return cm_remove_object::get_undo_command(action);
}

namespace {
constexpr command_names add_file{"com.ombrel.sd.cmObjects.KmAddFile", "add_file"};
constexpr command_names add_directory{"com.ombrel.sd.cmObjects.KmAddDirectory", "add_directory"};
constexpr command_names add_link{"com.ombrel.sd.cmObjects.KmAddLink", "add_link"};
constexpr command_names add_hard_link{"com.ombrel.sd.cmObjects.KmAddHardLink", "add_hard_link"};
constexpr command_names add_kept_file{"com.ombrel.sd.cmObjects.KmAddKeptFile", "add_kept_file"};
constexpr command_names remove_file{"com.ombrel.sd.cmObjects.KmRemoveFile", "remove_file"};
constexpr command_names remove_directory{"com.ombrel.sd.cmObjects.KmRemoveDirectory",
                                         "remove_directory"};
constexpr command_names remove_link{"com.ombrel.sd.cmObjects.KmRemoveLink", "remove_link"};
constexpr command_names remove_hard_link{"com.ombrel.sd.cmObjects.KmRemoveHardLink",
                                         "remove_hard_link"};
constexpr command_names remove_kept_file{"com.ombrel.sd.cmObjects.KmRemoveKeptFile",
                                         "remove_kept_file"};
} // namespace

cm_add_object* new_add_file(cm_object* of) {
    return new command_on<km_add_command, km_file, add_file>(of);
}
cm_add_object* new_add_directory(cm_object* of) {
    return new command_on<km_add_command, km_directory, add_directory>(of);
}
cm_add_object* new_add_link(cm_object* of) {
    return new command_on<km_add_command, km_link, add_link>(of);
}
cm_add_object* new_add_hard_link(cm_object* of) {
    return new command_on<km_add_command, km_hard_link, add_hard_link>(of);
}
cm_add_object* new_add_kept_file(cm_object* of) {
    return new command_on<km_add_command, km_kept_file, add_kept_file>(of);
}

cm_remove_object* new_remove_of(cm_object* of) {
    if (dynamic_cast<km_directory*>(of))
        return new command_on<km_remove_command, km_directory, remove_directory>(of);
    if (dynamic_cast<km_link*>(of))
        return new command_on<km_remove_command, km_link, remove_link>(of);
    if (dynamic_cast<km_hard_link*>(of))
        return new command_on<km_remove_command, km_hard_link, remove_hard_link>(of);
    if (dynamic_cast<km_kept_file*>(of))
        return new command_on<km_remove_command, km_kept_file, remove_kept_file>(of);
    return new command_on<km_remove_command, km_file, remove_file>(of);
}

extern "C" codable* make_KmAddFile() { return new_add_file(); }
extern "C" codable* make_KmAddDirectory() { return new_add_directory(); }
extern "C" codable* make_KmAddLink() { return new_add_link(); }
extern "C" codable* make_KmRemoveFile() {
    return new command_on<km_remove_command, km_file, remove_file>(nullptr);
}
extern "C" codable* make_KmRemoveDirectory() {
    return new command_on<km_remove_command, km_directory, remove_directory>(nullptr);
}
extern "C" codable* make_KmRemoveLink() {
    return new command_on<km_remove_command, km_link, remove_link>(nullptr);
}
extern "C" codable* make_KmAddHardLink() { return new_add_hard_link(); }
extern "C" codable* make_KmAddKeptFile() { return new_add_kept_file(); }
extern "C" codable* make_KmRemoveHardLink() {
    return new command_on<km_remove_command, km_hard_link, remove_hard_link>(nullptr);
}
extern "C" codable* make_KmRemoveKeptFile() {
    return new command_on<km_remove_command, km_kept_file, remove_kept_file>(nullptr);
}

} // namespace km
