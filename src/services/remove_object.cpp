// remove_object: command that removes an object
// no format
// invariant: taking this command back is the business of the add command that its undo holds
#include "exporter.h"
#include "importer.h"
#include "object_command.h"
#include "package.h"
#include "refcounttable.h"
#include "trclog.h"

#include <new>

namespace km {

int cm_remove_object::is_to_be_shared_removed() {
    return is_effective && undo_replace_if_existing && counted() <= -object->get_ref_count() &&
           !belongs_to_others();
}

void cm_remove_object::can_execute(int action, int phase) {
    KM_TRACE_FUNCTION("cm_remove_object::can_execute");
    result = success;
    if (refuses_device(true, false) || has_no_object())
        return;
    if (!is_effective && !override_is_effective())
        return;
    const auto kept = is_effective;
    is_effective = 1;
    if (action == a_execute)
        check_present(phase);
    is_effective = kept;
    iserr_can_execute();
}

void cm_remove_object::check_present(int phase) {
    if (phase == p_prepare) {
        if (object->exists(phase))
            result = object->check_remove(phase);
    } else if (is_changing_phase(phase) && object->exists(phase)) {
        if (!is_shared_now() || is_to_be_shared_removed())
            result = object->check_remove(phase);
    }
}

void cm_remove_object::do_execute(int action, int phase) {
    KM_TRACE_FUNCTION("cm_remove_object::do_execute");
    result = success;
    if (refuses_device(false, false) || has_no_object())
        return;
    execute_in_commit = 0;
    if (!is_effective)
        return;
    if (action == a_execute) {
        execute(phase);
    } else if (action == a_verify_execute) {
        if (phase != p_do && phase != p_prepare)
            result = failure;
        else if (!object->exists(phase))
            KM_TRACE(trace_info, "common", "object not exists");
        else if (is_shared_now())
            KM_TRACE(trace_info, "common", "object is shared");
    }
}

void cm_remove_object::execute(int phase) {
    switch (phase) {
    case p_do:
    case p_commit:
    case p_commit_before_reboot:
    case p_commit_after_reboot: {
        const bool is_counted = counts() && object->is_shared;
        if (!is_counted || is_to_be_shared_removed())
            result = object->remove(phase);
        // Removed or not: else an undo would never bring the count down.
        if (is_counted && result == success && phase != p_commit_before_reboot)
            reset_own_counter();
        if (phase == p_commit || phase == p_commit_after_reboot)
            execute_in_commit = 1;
        return;
    }
    case p_prepare:
    case p_do_cleanup:
    case p_prepare_cleanup:
    case p_commit_cleanup:
        result = object->remove(phase);
        return;
    case p_accept:
    case p_accept_cleanup:
    case p_backup_finish:
        return;
    default:
        result = failure;
    }
}

void cm_remove_object::can_backup(int action) {
    result = success;
    if (has_no_object())
        return;
    if (action == a_execute && object->exists(p_do) &&
        (!is_shared_now() || is_to_be_shared_removed()))
        result = object->can_read();
    iserr_can_backup();
}

cm_command* cm_remove_object::get_undo_command(int action) {
    KM_TRACE_FUNCTION("cm_remove_object::get_undo_command");
    result = success;
    if (has_no_object() || action != a_execute || !object->exists(p_do))
        return nullptr;
    cm_object* undo = object->get_undo_object();
    if (!undo) {
        result = object->result;
        KM_TRACE(trace_error, "common", "error getting the undo object with result = %d",
                 static_cast<int>(result));
        return nullptr;
    }
    undo->is_shared = object->is_shared;
    if (undo->is_shared && undo->get_ref_count() < 1)
        undo->set_ref_count(1);
    if (is_shared_now()) {
        undo->set_ref_count(-object->get_ref_count());
        if (!is_to_be_shared_removed()) {
            auto* remove = new (std::nothrow) cm_remove_object(undo);
            if (!remove) {
                delete undo;
                result = fatal_failure;
                return nullptr;
            }
            if (!undo->is_shared)
                remove->set_is_effective(0);
            return remove;
        }
    }
    auto* add = new (std::nothrow) cm_add_object(undo);
    if (!add) {
        delete undo;
        result = fatal_failure;
        return nullptr;
    }
    add->replace_if_existing = undo_replace_if_existing;
    add->replace_if_newer = undo->get_undo_replace_if_newer();
    return add;
}

ustring cm_remove_object::get_name() {
    if (!object)
        return u"remove ";
    if (preview_selected)
        object->preview_name = 1;
    return ustring(u"remove ") + object->get_name();
}

ustring cm_remove_object::get_log(int action) {
    return ustring(action == a_execute ? u"remove " : u"add ") +
           (object ? object->get_log(action) : ustring());
}

void cm_remove_object::import(importer& from) {
    from.set_add_mode(0);
    cm_command::import(from);
    if (object)
        object->import(from);
}

void cm_remove_object::export_(exporter& to) const {
    to.set_add_mode(0);
    cm_command::export_(to);
    if (object)
        object->export_(to);
}

} // namespace km
