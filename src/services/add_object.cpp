// add_object: command that adds an object
// no format
// invariants: data of an object that is left alone are stepped over in p_do; a count is set only
// behind an addition that succeeded
#include "base/msg_supp.h"
#include "command_filter.h"
#include "exporter.h"
#include "expression.h"
#include "importer.h"
#include "object_command.h"
#include "package.h"
#include "refcounttable.h"
#include "trclog.h"

#include <cstdlib>
#include <memory>
#include <new>

namespace km {

int cm_add_object::is_to_be_added() {
    if (object->is_during_a_restart())
        return 1;
    if (!is_effective) {
        KM_TRACE(trace_info, "common", "command is NOT effective");
        return 0;
    }
    if (!replace_if_existing) {
        KM_TRACE(trace_info, "common", "not replace if exists and it exists");
        return 0;
    }
    if (!replace_if_newer && object->is_newer()) {
        KM_TRACE(trace_info, "common", "is newer");
        return 0;
    }
    if (object->is_identical(1)) {
        KM_TRACE(trace_info, "common", "is identical");
        return 0;
    }
    return 1;
}

int cm_add_object::is_to_be_removed() {
    if (!is_effective)
        return 0;
    if (!remove_if_modified && !object->is_identical(1)) {
        KM_TRACE(trace_info, "common", "object modified");
        return 0;
    }
    if (counted() > 0) {
        KM_TRACE(trace_info, "common",
                 "Object '%s' is shared by some other SoftwarePackages. It CANNOT be removed",
                 object->get_name().mbcs_str());
        return 0;
    }
    return 1;
}

int cm_add_object::is_to_be_shared_removed() {
    if (!is_effective)
        return 0;
    if (counted() > object->get_ref_count() || belongs_to_others())
        return 0;
    KM_TRACE(trace_info, "common",
             "The object '%s' must be removed since its reference counter goes to zero",
             object->get_name().mbcs_str());
    return 1;
}

bool cm_add_object::may_be_removed() {
    return is_shared_now() ? is_to_be_shared_removed() : is_to_be_removed();
}

void cm_add_object::can_execute(int action, int phase) {
    KM_TRACE_FUNCTION("cm_add_object::can_execute");
    result = success;
    if (refuses_device(true, true) || has_no_object())
        return;
    if (action == a_execute)
        check_execute(phase);
    else if (action == a_reverse)
        check_reverse(phase);
    iserr_can_execute();
}

void cm_add_object::check_execute(int phase) {
    if (phase == p_prepare) {
        do_sharing_control(a_execute, p_prepare);
        result = object->check_add(p_prepare);
    } else if (is_changing_phase(phase)) {
        if (!object->exists(phase)) {
            result = object->check_add(phase);
            return;
        }
        do_sharing_control(a_execute, phase);
        if (is_to_be_added())
            result = object->check_add(phase);
    }
}

void cm_add_object::check_reverse(int phase) {
    if (phase == p_prepare) {
        result = object->check_remove(p_prepare);
    } else if (is_changing_phase(phase) && object->exists(phase)) {
        do_sharing_control(a_reverse, phase);
        if (may_be_removed())
            result = object->check_remove(phase);
    }
}

void cm_add_object::do_execute(int action, int phase) {
    KM_TRACE_FUNCTION("cm_add_object::do_execute");
    result = success;
    if (refuses_device(false, true) || has_no_object())
        return;
    execute_in_commit = 0;
    switch (action) {
    case a_execute:
        return execute(phase);
    case a_reverse:
        return reverse(phase);
    case a_verify_execute:
        return verify_execute(phase);
    case a_verify_reverse:
        return verify_reverse(phase);
    default:
        return;
    }
}

void cm_add_object::execute(int phase) {
    switch (phase) {
    case p_do:
    case p_commit:
    case p_commit_before_reboot:
    case p_commit_after_reboot:
        if (!put_in_place(phase))
            return;
        if (phase != p_commit_before_reboot)
            count_reference();
        if (phase == p_commit || phase == p_commit_after_reboot)
            execute_in_commit = 1;
        return;
    case p_prepare:
    case p_do_cleanup:
    case p_prepare_cleanup:
    case p_commit_cleanup:
    case p_backup_finish:
        result = object->add(phase);
        return;
    case p_accept:
    case p_accept_cleanup:
        return;
    default:
        result = failure;
    }
}

// False: there is nothing to count either.
bool cm_add_object::put_in_place(int phase) {
    const bool present = object->exists(phase);
    if (!present && !is_effective) {
        leave_alone(phase, "object is not effective");
        return false;
    }
    if (present && !is_to_be_added()) {
        // What this package never replaced, it must not take away later; but a counted object
        // stays removable by its last owner.
        if (phase == p_do && is_effective && !replace_if_existing &&
            !object->is_during_a_restart() && !object->is_shared)
            is_effective = 0;
        leave_alone(phase, "object is not to be added");
        return true;
    }
    result = object->add(phase);
    if (phase == p_commit_before_reboot)
        set_to_be_logged(0);
    return true;
}

void cm_add_object::leave_alone(int phase, const char* why) {
    KM_TRACE(trace_info, "common", "%s", why);
    if (phase == p_do)
        result = object->skip_data();
    set_to_be_logged(0);
}

void cm_add_object::count_reference() {
    if (result != success || !object->is_shared || !counts())
        return;
    ustring name, version;
    set_package_name_and_version(*package, name, version);
    KM_TRACE(trace_info, "common", "object '%s' is/as shared. Setting the reference counter",
             object->get_name().mbcs_str());
    counts()->set_counter(object->get_name(), name, version, object->get_ref_count());
}

void cm_add_object::reverse(int phase) {
    switch (phase) {
    case p_do:
    case p_commit:
    case p_commit_before_reboot:
    case p_commit_after_reboot:
        take_away(phase);
        if (phase == p_commit || phase == p_commit_after_reboot) {
            KM_TRACE(trace_info, "common", "this object has been executed in commit");
            execute_in_commit = 1;
        }
        return;
    case p_prepare:
    case p_do_cleanup:
    case p_prepare_cleanup:
    case p_commit_cleanup:
        result = object->remove(phase);
        return;
    case p_accept:
    case p_accept_cleanup:
        return;
    default:
        result = failure;
    }
}

void cm_add_object::take_away(int phase) {
    const bool is_counted = counts() && object->is_shared;
    if (is_counted ? is_to_be_shared_removed() : is_to_be_removed()) {
        if (phase == p_commit_before_reboot)
            set_to_be_logged(0);
        result = object->remove(phase);
    }
    if (is_counted && result == success && phase != p_commit_before_reboot) {
        KM_TRACE(trace_info, "common",
                 "object is/as shared. Remove the reference counter for this package");
        reset_own_counter();
    }
}

void cm_add_object::verify_execute(int phase) {
    if (phase == p_do) {
        if (!object->exists(phase)) {
            result = failure;
        } else if (is_to_be_added()) {
            const bool counted_as_shared = object->is_shared || counted() > 0;
            if (!counts() || !counted_as_shared)
                result = failure;
        }
    } else if (phase == p_prepare) {
        if (!object->exists(phase)) {
            KM_TRACE(trace_error, "common", "error: object does not exist for prepare");
            result = failure;
        } else if (!object->is_identical(phase)) {
            KM_TRACE(trace_error, "common", "error: object is not identical for prepare");
            result = failure;
        }
    } else {
        result = failure;
    }
}

void cm_add_object::verify_reverse(int phase) {
    if (phase == p_prepare)
        return;
    if (phase != p_do) {
        result = failure;
        return;
    }
    if (!is_effective || !object->exists(phase))
        return;
    if (is_shared_now()) {
        KM_TRACE(trace_info, "common", "object still exists and is/as shared");
        if (counted() > 0) {
            KM_TRACE(trace_info, "common", "object still exists but is successfully shared");
            return;
        }
    }
    KM_TRACE(trace_error, "common", "error: object still exists");
    result = failure;
}

void cm_add_object::can_backup(int action) {
    result = success;
    if (has_no_object())
        return;
    const bool backs_up = (action == a_execute && object->exists(p_do) && is_to_be_added()) ||
                          (action == a_reverse && object->exists(p_do) && may_be_removed());
    if (backs_up)
        result = object->can_read();
    iserr_can_backup();
}

long cm_add_object::get_size() { return object ? object->get_size() : 0; }

void cm_add_object::delta_save_command(pathname* base, unzipping_channel* in,
                                       zipping_channel* out) {
    result = object ? object->delta_save(base, in, out) : success;
}

void cm_add_object::save_command(unzipping_channel* in, zipping_channel* out) {
    result = object ? object->save(in, out) : success;
}

void cm_add_object::save_command(zipping_channel* out) {
    result = object ? object->save(out) : success;
}

void cm_add_object::load_command(const int load) { result = object ? object->load(load) : failure; }

void cm_add_object::skip_data() {
    result = success;
    if (package && package->effective_mask() == 2) {
        KM_TRACE(trace_info, "common", "command_mask is per_user: do not skip any data");
        return;
    }
    if (object)
        result = object->skip_data();
}

ustring cm_add_object::get_name() {
    if (!object)
        return u"add ";
    if (preview_selected)
        object->preview_name = 1;
    return ustring(u"add ") + object->get_name();
}

ustring cm_add_object::get_log(int action) {
    ustring text(action == a_execute ? u"add " : u"remove ");
    if (object)
        text += object->get_log(action);
    return text;
}

int cm_add_object::select_commands(filter_command_algorithm& filter, int evaluate, int) {
    if (evaluate) {
        km::condition when(condition);
        if (!when.evaluate(nullptr))
            return 0;
    }
    if (!object || filter(*object) != 1)
        return 0;
    replace_if_existing = replace_if_newer = remove_if_modified = 1;
    return 1;
}

void cm_add_object::import(importer& from) {
    from.set_add_mode(1);
    const ustring stanza = from.current_stanza();
    if (stanza != ustring(u"add_win_nt_service")) {
        from.get_boolean("replace_if_existing", &replace_if_existing);
        if (stanza != ustring(u"add_win_registry_key"))
            from.get_boolean("replace_if_newer", &replace_if_newer);
        from.get_boolean("remove_if_modified", &remove_if_modified);
    }
    cm_command::import(from);
    if (object)
        object->import(from);
}

void cm_add_object::export_(exporter& to) const {
    to.set_add_mode(1);
    cm_command::export_(to);
    const ustring stanza = to.current_stanza();
    if (stanza != ustring(u"add_win_nt_service") && stanza != ustring(u"add_line") &&
        stanza != ustring(u"add_token")) {
        to.put_boolean("replace_if_existing", replace_if_existing);
        if (stanza != ustring(u"add_win_registry_key"))
            to.put_boolean("replace_if_newer", replace_if_newer);
        to.put_boolean("remove_if_modified", remove_if_modified);
    }
    if (object)
        object->export_(to);
}

// What undoes an addition. The count of the undo's object takes back what this one contributed.
namespace {
int counted_as(int count, int sign) { return count ? sign * count : sign; }

void take_sharing(const cm_object& from, cm_object& undo) {
    undo.is_shared = from.is_shared;
    if (undo.is_shared && undo.get_ref_count() < 1)
        undo.set_ref_count(1);
}
} // namespace

cm_command* cm_add_object::get_undo_command(int action) {
    KM_TRACE_FUNCTION("cm_add_object::get_undo_command");
    result = success;
    if (has_no_object())
        return nullptr;
    return object->exists(p_do) ? undo_of_present(action) : undo_of_absent(action);
}

cm_command* cm_add_object::undo_of_absent(int action) {
    if (action != a_execute) {
        KM_TRACE(trace_info, "common",
                 "object does not exist, action is reverse, so nothing to backup");
        return nullptr;
    }
    auto* undo = static_cast<cm_object*>(object->clone());
    if (!undo) {
        result = object->result;
        KM_TRACE(trace_error, "common", "error getting the undo object from clone with result = %d",
                 static_cast<int>(result));
        return nullptr;
    }
    take_sharing(*object, *undo);
    undo->set_ref_count(counted_as(object->get_ref_count(), -1));
    return new_remove(undo, 1);
}

cm_object* cm_add_object::present_object() {
    cm_object* undo = object->get_undo_object();
    if (!undo) {
        result = object->result;
        KM_TRACE(trace_error, "common", "error getting the undo object with result = %d",
                 static_cast<int>(result));
        return nullptr;
    }
    take_sharing(*object, *undo);
    return undo;
}

cm_command* cm_add_object::undo_of_present(int action) {
    cm_object* undo = present_object();
    if (!undo)
        return nullptr;
    const int own = object->get_ref_count();
    if (action != a_execute) {
        if (is_shared_now())
            undo->set_ref_count(counted_as(own, 1));
        return new_add(undo);
    }
    if (is_to_be_added()) {
        undo->set_ref_count(counted_as(own, -1));
        return new_add(undo);
    }
    if (!counts() || !object->is_shared) {
        delete undo;
        return nullptr;
    }
    undo->set_ref_count(counted_as(own, -1));
    return new_remove(undo, 0);
}

cm_command* cm_add_object::new_add(cm_object* undo) {
    auto* command = new (std::nothrow) cm_add_object(undo);
    if (!command) {
        KM_TRACE(trace_error, "common",
                 "error: memory allocation failure allocating a new add_cmd");
        delete undo;
        result = fatal_failure;
        return nullptr;
    }
    command->replace_if_existing = undo_replace_if_existing;
    command->replace_if_newer = undo->get_undo_replace_if_newer();
    return command;
}

cm_command* cm_add_object::new_remove(cm_object* undo, int replaces) {
    auto* command = new (std::nothrow) cm_remove_object(undo);
    if (!command) {
        KM_TRACE(trace_error, "common",
                 "error: memory allocation failure allocating a new remove_cmd");
        delete undo;
        result = fatal_failure;
        return nullptr;
    }
    command->set_undo_replace_if_existing(replaces);
    return command;
}

} // namespace km
