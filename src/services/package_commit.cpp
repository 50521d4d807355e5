// package_commit: finishing of a prepared change
// no format
// invariant: a commit that failed leaves an error, or was turned round by an undo; never a state
// that says more than was done
#include "base/msg_supp.h"
#include "detail_package_execute.h"
#include "detail_package_store.h"
#include "dependency.h"
#include "kill_point.h"
#include "restart.h"
#include "status_words.h"
#include "trclog.h"

namespace km {

cm_result cm_package::commit(int mode_word, int call_argument) {
    KM_TRACE_FUNCTION("cm_package::commit");
    restart helper;
    helper.set_package(this);
    helper.verify_reboot_timeout(1, 1, 3);
    if (helper.result == failure) {
        KM_TRACE(trace_error, "common", "a pending reboot failed!");
        return result = failure;
    }
    executed = 1;
    mode = mode_word;
    operation_name = u"commit";
    commit_may_reboot = (mode_word & m_auto_reboot) != 0;
    const auto kept = result;
    if (external_call || kept == warning)
        result = success;
    catalog_key = cm_catalog_key(name, version);
    KM_TRACE(trace_info, "common", "commit called with mode %d", mode_word);
    initialize_commit(mode_word, call_argument);
    cm_result answer = result;
    if (result == success) {
        treat_as_prepared(mode_word);
        int checked_mode = mode_word;
        check_commit(checked_mode);
        mode = checked_mode;
        catalog_entry->entry_mode = checked_mode;
        answer = result == success ? run_commit(checked_mode, call_argument) : result;
    }
    if (!external_call)
        result = kept;
    return answer;
}

// A remove under "intelligent" passes through the commit of a prepared package.
void cm_package::treat_as_prepared(int mode_word) {
    if ((mode_word & (m_auto_commit | m_transactional)) || !(mode & m_intelligent_remove))
        return;
    auto& status = catalog_entry->current_cm_status;
    KM_TRACE(trace_info, "common", "consider the state as IPP-- old_value=%d new_value=%d", status,
             static_cast<int>(cs_prepared_undo_prepared));
    status = cs_prepared_undo_prepared;
}

void cm_package::initialize_commit(int mode_word, int call_argument) {
    if (external_call) {
        result = success;
        if (!find_catalog_entry(0)) {
            KM_TRACE(trace_error, "common", "package entry does not exist in the catalog");
            internal_error = ie_not_in_catalog;
            result = failure;
            return;
        }
    } else if (!catalog_entry) {
        result = failure;
        return;
    }
    auto& entry = *catalog_entry;
    entry.call_mode = mode_word;
    entry.call_argument = call_argument;
    int status = 0;
    if (!external_call && entry.current_result != success_reboot_now &&
        validate_cm_status(o_commit, a_execute, mode_word, 0, &status) != 0) {
        KM_TRACE(trace_error, "common", "Error: failure validating the cm status");
        result = failure;
        return;
    }
    commit_goes_on = entry.current_result != success;
    // The check of a commit that begins forgets which commands have to run again.
    const bool rebooted =
        entry.current_result == success_reboot_now ||
        (entry.current_result >= success_reboot_now_reexecute &&
         entry.current_result <= success_reboot_after_reexecute && (mode_word & m_during_reboot));
    if (rebooted) {
        KM_TRACE(trace_info, "common", "commit called after a reboot");
        operation_phase = u"commit_after_reboot";
        commit_phase = p_commit_after_reboot;
    } else {
        if (external_call) {
            KM_TRACE(trace_info, "common", "commit was called externally");
            entry.operation_requested = entry.operation_in_progress = o_commit;
            entry.entry_operation_result = 0;
        }
        operation_phase = u"commit";
        commit_phase = p_commit;
    }
    entry.status_at_start = entry.cm_status | entry.current_cm_status;
}

void cm_package::check_commit(int& mode_word) {
    if (result != success)
        return;
    set_operation_option(mode_word);
    auto& entry = *catalog_entry;
    KM_TRACE(trace_info, "common", "current cm status is %d", entry.current_cm_status);
    if (commit_phase == p_commit_after_reboot)
        return;
    switch (entry.current_cm_status) {
    case cs_committed:
    case cs_committed_undoable:
        return refuse("state already committed", nullptr, ie_already_committed);
    case cs_prepared_undo_prepared:
        check_backup_of_commit(mode_word);
        if (result == success)
            check_tree_of_commit();
        return;
    case cs_prepared:
    case cs_prepared_undoable:
        return check_tree_of_commit();
    case cs_committed_undo_prepared:
        return;
    default:
        refuse("Not valid state at all", nullptr, ie_not_prepared);
    }
}

void cm_package::check_backup_of_commit(int mode_word) {
    auto& entry = *catalog_entry;
    KM_TRACE(trace_info, "common", "backup is in status prepared");
    if (entry.backup_availability)
        return;
    operation_phase = u"backup";
    can_backup(entry.last_action);
    operation_result = u"success";
    const bool excused = commit_phase == p_commit_before_reboot ||
                         (commit_phase == p_commit && operation_is_preferably_not_in_reboot);
    if (result == temporary_failure && excused)
        result = success;
    if (result == success)
        return;
    KM_TRACE(trace_error, "common", "can_backup returned %d", static_cast<int>(result));
    if (result != temporary_failure || !(mode_word & m_preferably_undoable)) {
        KM_TRACE(trace_error, "common", "error: cannot make backup before commit");
        internal_error = ie_backup_refused;
        return;
    }
    KM_TRACE(trace_warning, "common", "avoid to do backup");
    entry.current_cm_status = cs_prepared;
    result = success;
    operation_is_preferably_undoable = 0;
}

void cm_package::check_tree_of_commit() {
    KM_TRACE(trace_info, "common", "execution is in status prepared");
    operation_phase = commit_phase == p_commit ? u"commit" : u"commit_before_reboot";
    can_execute(catalog_entry->last_action, commit_phase);
    operation_result = u"success";
    if (result == success)
        return;
    KM_TRACE(trace_error, "common", "can execute returned %d", static_cast<int>(result));
    KM_TRACE(trace_error, "common", "error: cannot execute with this phase %d", commit_phase);
    internal_error = ie_commit_refused;
}

// False: nothing has happened.
bool cm_package::commit_package(int mode_word, int call_argument) {
    KM_TRACE_FUNCTION("cm_package::commit_package");
    auto& entry = *catalog_entry;
    if (entry.current_result == success_reboot_now) {
        KM_TRACE(trace_info, "common", "commit called after a reboot");
        restart helper;
        helper.set_package(this);
        if (!(connected && operation_is_auto_reboot) && !helper.remove_restart_condition()) {
            KM_TRACE(trace_error, "common", "error: failed to remove restart condition");
            result = failure;
            return true;
        }
    }
    entry.current_result = 0;
    switch (entry.current_cm_status) {
    case cs_prepared_undo_prepared:
        if (!backup_before_commit(mode_word))
            return true;
        break;
    case cs_prepared_undoable:
        drop_stale_undo();
        break;
    case cs_prepared:
        break;
    case cs_committed_undo_prepared:
        if (!note_begun())
            return false;
        commit_prepared_undo(mode_word, call_argument);
        KM_TRACE(trace_info, "common", "do execute for commit returned %d",
                 static_cast<int>(result));
        return true;
    default:
        KM_TRACE(trace_error, "common", "Not valid state at all");
        internal_error = ie_not_prepared;
        result = failure;
        return true;
    }
    if (!note_begun())
        return false;
    KM_KILL_POINT("commit.before_tree");
    do_execute(entry.last_action, commit_phase);
    KM_KILL_POINT("commit.after_tree");
    KM_TRACE(trace_info, "common", "do execute for commit returned %d", static_cast<int>(result));
    return true;
}

// The catalog could not be told of the commit: what is prepared stays as it is.
cm_result cm_package::commit_not_begun() {
    KM_TRACE(trace_error, "common", "Error updating the catalog entry");
    internal_error = ie_catalog_update;
    if (!external_call) {
        catalog_entry->cm_status = catalog_entry->current_cm_status;
        catalog_entry->current_cm_status = cs_error;
    }
    return result = fatal_failure;
}

// False: the commit ends here.
bool cm_package::backup_before_commit(int mode_word) {
    auto& entry = *catalog_entry;
    if (entry.backup_availability) {
        KM_TRACE(trace_info, "common", "backup package already available");
        drop_stale_undo();
        entry.current_cm_status = cs_prepared_undoable;
        return true;
    }
    KM_TRACE(trace_info, "common", "prepare backup package before commit");
    const int operation = entry.operation_in_progress;
    entry.operation_in_progress = o_commit;
    make_backup(entry.last_action, commit_phase);
    entry.operation_in_progress = operation;
    if (result == success) {
        if (commit_phase != p_commit_before_reboot) {
            make_backup(entry.last_action, p_commit_cleanup);
            entry.current_cm_status = cs_prepared_undoable;
        }
        operation_phase =
            commit_phase == p_commit_before_reboot ? u"commit_before_reboot" : u"commit";
        return true;
    }
    if (mode_word & m_preferably_undoable) {
        KM_TRACE(trace_warning, "common", "prepare backup failed but mode is preferably undoable");
        result = success;
        entry.current_cm_status = cs_prepared;
        return true;
    }
    KM_TRACE(trace_error, "common", "error: cannot build the backup package");
    internal_error = ie_backup_not_built;
    return false;
}

// An undo that stopped prepared: the backup package is committed.
void cm_package::commit_prepared_undo(int mode_word, int call_argument) {
    // It ended, and was cut before this package's entry told so.
    if (const auto* inner = inner_entry(); inner && is_complete(*inner, cs_committed))
        return;
    if (!load_partner()) {
        result = failure;
        return;
    }
    prepare_partner();
    append_extra_text(*partner_package);
    delete partner_package->catalog_entry;
    partner_package->catalog_entry = new cm_catalog_entry(*catalog_entry);
    clone_reboot_program();
    result = partner_package->commit(mode_word, call_argument);
    if (before_reboot_program && partner_package->catalog_entry)
        partner_package->download_newsp();
    partner_package->release_channels();
    take_back_variables();
}

cm_result cm_package::run_commit(int mode_word, int call_argument) {
    auto& entry = *catalog_entry;
    if (!commit_package(mode_word, call_argument))
        return commit_not_begun();
    KM_TRACE(trace_info, "common", "commit at this point has result %d", static_cast<int>(result));
    const int next = next_status(o_commit, entry.current_cm_status);
    bool stored = true;
    switch (result) {
    case success:
    case warning:
        stored = commit_phase == p_commit_before_reboot ? wait_for_reboot() : end_commit(next);
        break;
    case success_reboot_now:
    case success_reboot_now_reexecute:
    case success_reboot_after:
    case success_reboot_after_reexecute:
    case success_in_a_reboot:
    case success_retry:
        stored = suspend_commit();
        break;
    default:
        fail_commit(next, call_argument);
    }
    if (!stored)
        return fatal_failure;
    return external_call ? store_commit() : result;
}

bool cm_package::wait_for_reboot() {
    auto& entry = *catalog_entry;
    restart helper;
    helper.set_package(this);
    entry.current_result = success_reboot_now;
    KM_TRACE(trace_info, "common", "Prepare restart condition");
    if (!helper.prepare_restart_condition()) {
        if (!external_call) {
            entry.cm_status = entry.current_cm_status;
        } else {
            entry.operation_in_progress = o_none;
            entry.entry_operation_result = entry.current_result = fatal_failure;
        }
        entry.current_cm_status = cs_error;
        store_entry_now(*this);
        internal_error = ie_memory;
        return false;
    }
    if (!commit_may_reboot) {
        result = success_in_a_reboot;
        return true;
    }
    KM_TRACE(trace_warning, "common", "Set reboot condition");
    helper.execute_restart();
    if (before_reboot_program) {
        KM_TRACE(trace_info, "common", "before_reboot_program is set, executing");
        before_reboot_program->do_execute(a_execute, p_do);
        encode_messages = 1;
        if (!is_backup_package) {
            KM_TRACE(trace_info, "common", "it is not the backup package, refresh now");
            download_newsp();
        }
    }
    result = success_reboot_now;
    return true;
}

bool cm_package::end_commit(int next) {
    auto& entry = *catalog_entry;
    const auto outcome = result;
    entry.current_cm_status = next;
    if (external_call) {
        entry.cm_status = next;
        entry.entry_operation_result = outcome;
        entry.operation_in_progress = o_none;
    }
    operation_phase = u"commit_cleanup";
    do_execute(entry.last_action, p_commit_cleanup);
    KM_TRACE(trace_info, "common", "cleanup returned a result = %d", static_cast<int>(result));
    result = result == success ? outcome : warning;
    // The profile tells what was done before the reboot alone, and that it is not to be done again.
    // Later operations go by it. A cut behind these lines commits once more.
    if (!commit_goes_on || !external_call)
        return true;
    const auto ended = result;
    const bool written = download_list(entry.profile_name, 1);
    result = written ? ended : fatal_failure;
    if (!written)
        KM_TRACE(trace_error, "common", "Error downloading the list");
    return written;
}

bool cm_package::suspend_commit() {
    auto& entry = *catalog_entry;
    entry.current_result = result;
    if (!download_list(entry.profile_name, 1)) {
        KM_TRACE(trace_error, "common", "Error downloading the list");
        return false;
    }
    if (result == success_retry)
        return true;
    restart helper;
    helper.set_package(this);
    if (!helper.prepare_restart_condition()) {
        KM_TRACE(trace_error, "common", "Error preparing the restart condition");
        internal_error = ie_memory;
        return false;
    }
    if (result == success_in_a_reboot)
        return true;
    KM_TRACE(trace_warning, "common", "Set reboot condition, restart_internal is %d ",
             restart_internal);
    if (!restart_internal)
        helper.execute_restart();
    else
        restart_internal = 0;
    return true;
}

void cm_package::fail_commit(int next, int call_argument) {
    auto& entry = *catalog_entry;
    const auto outcome = result;
    operation_phase = u"commit_cleanup";
    do_execute(entry.last_action, p_commit_cleanup);
    KM_TRACE(trace_info, "common", "cleanup returned a result = %d", static_cast<int>(result));
    result = outcome;
    internal_error = ie_commit_failed;
    switch (entry.current_cm_status) {
    case cs_prepared:
    case cs_prepared_undo_prepared:
    case cs_committed_undo_prepared:
        if (!external_call)
            entry.cm_status = entry.current_cm_status;
        entry.current_cm_status = cs_error;
        break;
    case cs_prepared_undoable: {
        // The backup stands: the change is taken back at once.
        const auto was_external = external_call;
        external_call = 0;
        entry.operation_in_progress = o_undo;
        entry.current_cm_status = next;
        KM_TRACE(trace_warning, "common", "perform an undo to cleanup");
        undo(1, call_argument);
        external_call = was_external;
        result = outcome;
        break;
    }
    default:
        break;
    }
    if (external_call) {
        entry.operation_in_progress = o_none;
        entry.entry_operation_result = outcome;
    }
}

cm_result cm_package::store_commit() {
    auto& entry = *catalog_entry;
    const auto outcome = result;
    const bool inverted = entry.inverse_action && entry.last_action == a_reverse;
    if (entry.cm_status == cs_committed && inverted) {
        KM_TRACE(trace_info, "common", "delete package if last action is reverse");
        KM_TRACE(trace_info, "common", "delete references in case.....");
        const auto gone = delete_package_reference(1, 1);
        return gone == success ? outcome : gone;
    }
    if (entry.current_cm_status == cs_initial) {
        if (!inverted) {
            KM_TRACE(trace_info, "common", "delete package reference");
            result = delete_package_reference(1, 1);
            if (result == success)
                return result = outcome;
            entry.current_cm_status = cs_error;
        } else {
            const cm_catalog_entry promising(entry);
            reset_to_committed(entry);
            if (store_without_backup(*this, promising))
                return result;
        }
        store_entry_now(*this);
        return result;
    }
    KM_TRACE(trace_info, "common", "update package catalog entry");
    if (store_entry_now(*this))
        return outcome;
    restart helper;
    helper.set_package(this);
    helper.remove_restart_condition();
    helper.remove_restart();
    KM_TRACE(trace_error, "common", "Error updating the catalog entry");
    internal_error = ie_catalog_update;
    return fatal_failure;
}

} // namespace km
