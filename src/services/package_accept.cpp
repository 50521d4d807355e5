// package_accept: making a state final
// no format
// invariant: the means of undo go only when the entry no longer promises them
#include "base/msg_supp.h"
#include "detail_package_execute.h"
#include "detail_package_store.h"
#include "kill_point.h"
#include "status_words.h"
#include "trclog.h"

namespace km {

cm_result cm_package::accept(int mode_word, int call_argument) {
    KM_TRACE_FUNCTION("cm_package::accept");
    executed = 1;
    catalog_key = cm_catalog_key(name, version);
    mode = mode_word;
    operation_name = u"accept";
    operation_phase = u"commit";
    set_operation_option(mode_word);
    std::int32_t started = 0;
    const bool begun = external_call ? begin_external(o_accept, mode_word, call_argument, started)
                                     : begin_internal(o_accept, mode_word, call_argument);
    if (!begun)
        return failure;
    auto& entry = *catalog_entry;
    can_execute(entry.last_action, p_accept);
    operation_result = u"success";
    if (result != success && result != warning) {
        KM_TRACE(trace_error, "common", "Error: can_execute on accept");
        return failure;
    }
    do_execute(entry.last_action, p_accept);
    auto outcome = result;
    KM_TRACE(trace_info, "common", "accept do_execute returned with result %d",
             static_cast<int>(outcome));
    if (outcome != success && outcome != warning) {
        KM_TRACE(trace_error, "common", "Error: accept failed on do_execute with result %d",
                 static_cast<int>(outcome));
        if (!external_call)
            entry.cm_status = entry.current_cm_status;
        entry.current_cm_status = cs_error;
    }
    const auto early = accept_state(mode_word, call_argument, outcome);
    if (early != success)
        return early;
    if (external_call && !store_accepted(outcome, started))
        return fatal_failure;
    const auto kept = result;
    operation_phase = u"commit_cleanup";
    do_execute(entry.last_action, p_accept_cleanup);
    if (result != success && outcome == success) {
        KM_TRACE(trace_error, "common", "accept cleanup failed with result %d",
                 static_cast<int>(result));
        outcome = warning;
    }
    result = kept;
    return outcome;
}

// Throws away what the state keeps for an undo. Not success: accept ends with it.
cm_result cm_package::accept_state(int mode_word, int call_argument, cm_result& outcome) {
    auto& entry = *catalog_entry;
    switch (entry.current_cm_status) {
    case cs_prepared_undo_prepared:
        KM_TRACE(trace_info, "common", "undoability is just prepared");
        entry.current_cm_status = cs_prepared;
        return success;
    case cs_prepared_undoable:
        KM_TRACE(trace_info, "common", "undoability is committed");
        return drop_backup(cs_prepared_undoable, cs_prepared);
    case cs_committed_undoable:
        KM_TRACE(trace_info, "common", "undoability is committed and execution too");
        return drop_backup(cs_committed_undoable, cs_committed);
    case cs_committed_undo_prepared:
        KM_TRACE(trace_info, "common", "restore is prepared");
        return accept_prepared_undo(mode_word, call_argument, outcome);
    case cs_error:
        return success;
    default:
        KM_TRACE(trace_error, "common", "Not valid state at all");
        internal_error = ie_action_and_state;
        return failure;
    }
}

// The entry stops promising the backup before its file goes; only where the file cannot go does it
// come back, in error. In a chain the entry is stored at its end.
cm_result cm_package::drop_backup(std::int32_t before, std::int32_t after) {
    auto& entry = *catalog_entry;
    const pathname backup = entry.undo_package_name;
    if (external_call) {
        drop_stale_undo(); // once the backup is promised no more, nobody finds it
        entry.cm_status = entry.current_cm_status = after;
        entry.backup_availability = 0;
        entry.undo_package_name = pathname();
        if (!store_entry_now(*this)) {
            internal_error = ie_catalog_update;
            return fatal_failure;
        }
        KM_KILL_POINT("accept.before_backup");
        entry.cm_status = before;
        entry.backup_availability = 1;
        entry.undo_package_name = backup;
    }
    if (delete_package_reference(0, 1) == success) {
        entry.current_cm_status = after;
        entry.backup_availability = 0;
        entry.undo_package_name = pathname();
        return success;
    }
    if (!external_call)
        entry.cm_status = before;
    entry.current_cm_status = cs_error;
    return success;
}

cm_result cm_package::accept_prepared_undo(int mode_word, int call_argument, cm_result& outcome) {
    auto& entry = *catalog_entry;
    if (!load_partner())
        return fatal_failure;
    prepare_partner();
    const auto answer = partner_package->rollback(mode_word, call_argument);
    take_back_variables();
    KM_TRACE(trace_info, "common", "rollback on the undo package returned %d",
             static_cast<int>(answer));
    if (answer == success || answer == warning) {
        entry.current_cm_status = cs_committed;
        entry.backup_availability = 0;
        if (answer == warning)
            outcome = warning;
    } else {
        if (!external_call)
            entry.cm_status = cs_committed_undo_prepared;
        entry.current_cm_status = cs_error;
        outcome = answer;
    }
    return success;
}

bool cm_package::store_accepted(cm_result outcome, std::int32_t started) {
    auto& entry = *catalog_entry;
    if (entry.last_action == a_reverse && started && entry.current_cm_status == cs_committed) {
        if (delete_package_reference(1, 1) == success)
            return true;
        KM_TRACE(trace_error, "common", "Error deleting package reference");
        internal_error = ie_catalog_update;
        return false;
    }
    entry.operation_in_progress = o_none;
    entry.entry_operation_result = outcome;
    // Where the backup could not go the state stays, in error.
    if ((outcome == success || outcome == warning) && entry.current_cm_status != cs_error)
        entry.cm_status = entry.current_cm_status;
    if (store_entry_now(*this))
        return true;
    internal_error = ie_catalog_update;
    return false;
}

} // namespace km
