// text_commands: the commands that put texts into files of others
// format: docs/formats/package-file.md
// invariant: a command always has an object of its class
#include "text_commands.h"

#include "command_on.h"
#include "ini_object.h"
#include "line_object.h"
#include "package.h"
#include "token_object.h"
#include "trclog.h"

namespace km {

text_object* km_text_add_command::tell_object() {
    auto* on = dynamic_cast<text_object*>(object);
    if (on) {
        on->set_index(command_index);
        on->set_takes_changed(remove_if_modified);
    }
    return on;
}

void km_text_add_command::can_execute(int action, int phase) {
    tell_object();
    km_add_command::can_execute(action, phase);
}

cm_command* km_text_add_command::get_undo_command(int action) {
    tell_object();
    return km_add_command::get_undo_command(action);
}

// Asked only for a text that stood there before: the file around it tells nothing.
void km_text_add_command::do_sharing_control(int action, int phase) {
    auto* on = tell_object();
    if (action == a_execute && on && (!on->is_identical(p_do) || on->is_own()))
        return;
    km_add_command::do_sharing_control(action, phase);
}

void km_text_add_command::do_execute(int action, int phase) {
    auto* on = tell_object();
    const bool works =
        on && is_effective && is_changing_phase(phase) && phase != p_commit_before_reboot;
    if (works && action == a_verify_reverse) {
        // The file stays, and with it what stood in it before.
        result = on->exists(phase) && on->is_identical(phase) && on->is_own() && counted() <= 0
                     ? failure
                     : success;
        return;
    }
    const bool is_gone =
        works && action == a_reverse && !remove_if_modified && !on->is_identical(phase);
    if (is_gone && on->can_read() != success) {
        result = on->result; // what cannot be read may hold the text
        return;
    }
    // A counted object is asked itself, and tells it.
    if (is_gone && on->is_own() && !(counts() && on->is_shared))
        on->tell_gone();
    km_add_command::do_execute(action, phase);
    if (is_gone && result == success && !on->forget_if_gone())
        result = failure;
    const bool may_differ = on && on->may_replace() && !replace_if_existing && on->exists(phase);
    if (works && action == a_verify_execute && result == success && !may_differ &&
        !on->is_identical(phase)) {
        KM_TRACE(trace_error, "common", "error: the text does not stand");
        result = failure;
    }
}

// What stood there, and is taken out, comes back although its file exists.
km_text_remove_command::km_text_remove_command(cm_object* of) : km_remove_command(of) {
    undo_replace_if_existing = 1;
    tell_object();
}

codable* km_text_remove_command::decode_object(decoder& from, long stream_version) {
    km_remove_command::decode_object(from, stream_version);
    tell_object();
    return this;
}

text_object* km_text_remove_command::tell_object() {
    auto* on = dynamic_cast<text_object*>(object);
    if (on) {
        on->set_index(command_index);
        on->set_asked_for(true);
    }
    return on;
}

void km_text_remove_command::can_execute(int action, int phase) {
    tell_object();
    km_remove_command::can_execute(action, phase);
}

void km_text_remove_command::do_execute(int action, int phase) {
    tell_object();
    km_remove_command::do_execute(action, phase);
}

cm_command* km_text_remove_command::get_undo_command(int action) {
    tell_object();
    return km_remove_command::get_undo_command(action);
}

namespace {
constexpr command_names add_line{"com.ombrel.sd.cmObjects.KmAddLine", "add_line"};
constexpr command_names add_token{"com.ombrel.sd.cmObjects.KmAddToken", "add_token"};
constexpr command_names add_ini_item{"com.ombrel.sd.cmObjects.KmAddIniItem", "add_ini_item"};
constexpr command_names remove_line{"com.ombrel.sd.cmObjects.KmRemoveLine", "remove_line"};
constexpr command_names remove_token{"com.ombrel.sd.cmObjects.KmRemoveToken", "remove_token"};
constexpr command_names remove_ini_item{"com.ombrel.sd.cmObjects.KmRemoveIniItem",
                                        "remove_ini_item"};
} // namespace

cm_add_object* new_add_line(cm_object* of) {
    return new command_on<km_text_add_command, km_line, add_line>(of);
}
cm_add_object* new_add_token(cm_object* of) {
    return new command_on<km_text_add_command, km_token, add_token>(of);
}
cm_add_object* new_add_ini_item(cm_object* of) {
    return new command_on<km_text_add_command, km_ini_item, add_ini_item>(of);
}

cm_remove_object* new_text_remove_of(text_object* of) {
    if (dynamic_cast<km_token*>(of))
        return new command_on<km_text_remove_command, km_token, remove_token>(of);
    if (dynamic_cast<km_ini_item*>(of))
        return new command_on<km_text_remove_command, km_ini_item, remove_ini_item>(of);
    return new command_on<km_text_remove_command, km_line, remove_line>(of);
}

extern "C" codable* make_KmAddLine() { return new_add_line(); }
extern "C" codable* make_KmAddToken() { return new_add_token(); }
extern "C" codable* make_KmAddIniItem() { return new_add_ini_item(); }
extern "C" codable* make_KmRemoveLine() { return new_text_remove_of(new km_line); }
extern "C" codable* make_KmRemoveToken() { return new_text_remove_of(new km_token); }
extern "C" codable* make_KmRemoveIniItem() { return new_text_remove_of(new km_ini_item); }

} // namespace km
