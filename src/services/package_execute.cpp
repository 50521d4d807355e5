// package_execute: execute and its steps
// no format
// invariants: nothing is stored before the objects' work but what a resume needs; what was refused
// is never run
#include "base/msg_supp.h"
#include "base_configuration.h"
#include "detail_package_execute.h"
#include "detail_package_store.h"
#include "file.h"
#include "kill_point.h"
#include "status_words.h"
#include "trclog.h"

#include <new>

namespace km {

void reset_to_committed(cm_catalog_entry& entry) {
    entry.cm_status = entry.current_cm_status = cs_committed;
    entry.last_action = a_execute;
    entry.entry_mode = 0;
    entry.operation_requested = 0;
    entry.operation_in_progress = o_none;
    entry.current_result = entry.entry_operation_result = 0;
    entry.backup_package = entry.backup_availability = 0;
    entry.already_committed = entry.inverse_action = 0;
    entry.undo_package_name = pathname();
}

bool cm_package::has_no_reboot_flags() const {
    return !operation_is_preferably_not_in_reboot && !operation_is_in_a_reboot &&
           !operation_is_auto_reboot;
}

cm_result cm_package::execute(int action, int mode_word, int call_argument) {
    KM_TRACE_FUNCTION("cm_package::execute");
    KM_TRACE(trace_warning, "common", "action to be executed is %d with mode is %x", action,
             static_cast<unsigned>(mode_word));
    run at(action, mode_word, call_argument);
    begin_execute(at);
    switch (resume_stage) {
    case run::from_start:
        if (!start_fresh(at))
            return at.answer;
        break;
    case run::from_do:
    case run::from_accept:
    case run::from_commit:
        if (!rebuild_for_resume(at))
            return at.answer;
        break;
    default:
        result = failure;
        return finish_execute(at);
    }
    const int entered = resume_stage;
    if (entered == run::from_start || entered == run::from_do) {
        next_resume_stage = run::from_do;
        encode_messages = 1;
        execute_package(at);
    }
    if (entered != run::from_accept && !commit_leg(at))
        return at.answer;
    accept_leg(at);
    return finish_execute(at);
}

void cm_package::begin_execute(run& at) {
    catalog_key = cm_catalog_key(name, version);
    result = success;
    mode = at.mode;
    progress_done_ = progress_total_ = 0;
    check_point_offset = restart_offset;
    if (operation_name == ustring(u"undo"))
        return;
    if (at.action != a_execute) {
        operation_name = u"remove";
    } else if (is_backup_package) {
        operation_name = u"undo";
        resume_stage = run::from_start;
    } else {
        operation_name = u"install";
    }
}

// What a profile does not hold comes back from the entry.
bool cm_package::rebuild_for_resume(run& at) {
    if (!catalog_entry && !find_catalog_entry(0)) {
        internal_error = ie_not_in_catalog;
        result = failure;
        at.answer = result;
        return false;
    }
    set_operation_option(at.mode);
    if (catalog_entry->inverse_action && !_previous_catalog_entry) {
        _previous_catalog_entry = new cm_catalog_entry(*catalog_entry);
        reset_to_committed(*_previous_catalog_entry);
    }
    return true;
}

// From the state of the catalog to the point where the tree may run.
bool cm_package::start_fresh(run& at) {
    const std::int32_t old_status = stored_status();
    initialize_execute(at.action, at.mode);
    if (catalog_entry) {
        catalog_entry->call_mode = at.mode;
        catalog_entry->call_argument = at.call_argument;
    }
    check_execute(at.action, at.mode);
    if (result != success) {
        at.answer = result = is_backup_package ? failure_with_info : result;
        return false;
    }
    if ((at.mode & m_force) && stored_status() == cs_committed_undo_prepared)
        drop_prepared_copies();
    bool reference_gone = false;
    if ((at.mode & m_force) && (at.mode & m_binary_file) && package_mask != 2 &&
        !drop_old_reference(at, reference_gone))
        return false;
    mode = at.mode;
    catalog_entry->entry_mode = at.mode;
    catalog_entry->entry_package_type = package_type;
    catalog_entry->entry_versioning_type = versioning_type;
    catalog_entry->entry_dependency = dependency;
    make_backup(at.action, 0);
    if (result == success || step_down_without_backup(at))
        return true;
    if (reference_gone)
        keep_known(old_status);
    return false;
}

std::int32_t cm_package::stored_status() const {
    const auto* stored = catalog ? catalog->get_as<cm_catalog_entry>(catalog_key) : nullptr;
    return stored ? stored->cm_status : cs_initial;
}

// Force over a package: what the older install left in the catalog and its files goes first.
bool cm_package::drop_old_reference(run& at, bool& gone) {
    KM_TRACE(trace_warning, "common",
             "Mode force and binary_file found. Deleting package reference...");
    gone = catalog && catalog->get(catalog_key);
    drop_prepared_copies();
    const auto answer = delete_package_reference(1, 1);
    if (answer != success) {
        internal_error = ie_force;
        at.answer = answer;
        return false;
    }
    catalog_entry->profile_name = pathname();
    catalog_entry->undo_package_name = pathname();
    catalog_entry->backup_availability = catalog_entry->backup_package = 0;
    catalog_entry->current_result = 0;
    return true;
}

// A backup that could not be made, under a mode that only prefers one.
bool cm_package::step_down_without_backup(run& at) {
    if (!(at.mode & m_preferably_undoable)) {
        at.answer = result = is_backup_package ? failure_with_info : result;
        return false;
    }
    KM_TRACE(trace_warning, "common", "backup failed but mode is preferably undoable");
    result = success;
    internal_error = ie_none;
    auto& operation = catalog_entry->operation_in_progress;
    if (operation == o_execute_undoable) {
        operation = o_execute;
    } else if (operation == o_prepare_undoable) {
        operation = o_prepare;
    } else {
        KM_TRACE(trace_error, "common", "error: internal error");
        internal_error = ie_operation;
        at.answer = fatal_failure;
        return false;
    }
    return true;
}

// The forced run ends before it began, and the older install has left the catalog: the package must
// stay known, in error, since its objects stand.
void cm_package::keep_known(std::int32_t old_status) {
    pathname profile;
    if (!get_new_profile_name(profile))
        return;
    if (!download_list(profile, 1)) {
        file(profile).remove(0);
        return;
    }
    catalog_entry->profile_name = profile;
    catalog_entry->cm_status = old_status;
    catalog_entry->current_cm_status = cs_error;
    catalog_entry->operation_in_progress = o_none;
    if (!store_entry_now(*this))
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
}

void cm_package::initialize_execute(int action, int mode_word) {
    const int found = find_catalog_entry(1);
    if (result != success)
        return;
    auto& entry = *catalog_entry;
    if (!found) {
        initialize_new_entry(action, mode_word);
    } else {
        pathname device(base_configuration().get_var(u"working_dir"));
        device += ustring(u"devices");
        device += device_id;
        if (!device_id.empty() && file(device).exists()) {
            entry.cm_status = entry.current_cm_status = cs_initial;
            return;
        }
        initialize_known_entry(action, mode_word);
    }
    entry.status_at_start = entry.cm_status | entry.current_cm_status;
}

void cm_package::initialize_new_entry(int action, int mode_word) {
    KM_TRACE(trace_info, "common", "Catalog entry is not in catalog");
    auto& entry = *catalog_entry;
    entry.cm_status = entry.current_cm_status = cs_initial;
    entry.last_action = action;
    entry.entry_mode = mode_word;
    entry.operation_requested = 0;
    entry.operation_in_progress = o_none;
    entry.internal_package = internal_package;
    entry.current_result = entry.entry_operation_result = 0;
    entry.backup_availability = entry.already_committed = entry.inverse_action = 0;
    entry.backup_package = is_backup_package ? 1 : 0;
}

// The run that the entry tells of was cut, and this is its repetition.
bool cm_package::resumes_interrupted_run(int action) const {
    const auto& entry = *catalog_entry;
    if (entry.cm_status != entry.current_cm_status || action != entry.last_action ||
        entry.cm_status == cs_error) // an error: only force goes over it, from the beginning
        return false;
    const bool cut = (entry.current_result >= success_reboot_now &&
                      entry.current_result <= success_reboot_after_reexecute) ||
                     entry.current_result == success_retry;
    const bool with_backup =
        entry.backup_availability == 1 && (entry.operation_in_progress == o_execute_undoable ||
                                           entry.operation_in_progress == o_prepare_undoable);
    return cut || with_backup;
}

void cm_package::initialize_known_entry(int action, int mode_word) {
    auto& entry = *catalog_entry;
    if (entry.cm_status == cs_initial) {
        if (action != entry.last_action)
            refuse("error invalid action and state, action and last_action", nullptr,
                   ie_action_and_state);
        return;
    }
    KM_TRACE(trace_warning, "common", "Catalog entry is not in the initial status");
    const bool inverts = action != entry.last_action && entry.cm_status == cs_committed;
    const bool resumes = resumes_interrupted_run(action);
    if (!resumes && !inverts && !(mode_word & (m_force | m_repair | m_source))) {
        refuse("error invalid action and state", nullptr, ie_action_and_state);
        return;
    }
    executed = 0;
    _last_result = 0;
    if (inverts || (resumes && entry.inverse_action)) {
        KM_TRACE(trace_info, "common", "invert action");
        delete _previous_catalog_entry;
        _previous_catalog_entry = new (std::nothrow) cm_catalog_entry(entry);
        if (!_previous_catalog_entry) {
            KM_TRACE(trace_error, "common", "Error: allocating memory for _previous_catalog_entry");
            result = fatal_failure;
            internal_error = ie_memory;
            return;
        }
        if (resumes)
            reset_to_committed(*_previous_catalog_entry);
    }
    reset_command_status();
    if (resumes)
        return;
    entry.inverse_action = action != entry.last_action;
    if (entry.inverse_action)
        entry.backup_availability = 0; // the one there takes the other action back
    entry.already_committed = 0;
    if (mode_word & m_binary_file) {
        entry.cm_status = entry.current_cm_status = cs_initial;
        entry.backup_availability = entry.backup_package = 0;
    }
    entry.last_action = action;
    entry.entry_mode = mode_word;
    entry.operation_requested = 0;
    entry.operation_in_progress = o_none;
    entry.internal_package = internal_package;
    entry.current_result = entry.entry_operation_result = 0;
}

// The tree, in the phase that the operation says, and its cleanup.
void cm_package::execute_package(run& at) {
    KM_TRACE_FUNCTION("cm_package::execute_package");
    auto& entry = *catalog_entry;
    int tree_phase;
    switch (entry.operation_in_progress) {
    case o_execute:
    case o_execute_undoable:
        KM_TRACE(trace_info, "common", "perform do_execute with phase p_do");
        operation_phase = u"commit";
        tree_phase = p_do;
        break;
    case o_prepare:
    case o_prepare_undoable:
    case o_prepare_undo_prepare:
        KM_TRACE(trace_info, "common", "perform do_execute with phase p_prepare");
        operation_phase = u"prepare";
        tree_phase = p_prepare;
        break;
    default:
        internal_error = ie_operation;
        result = fatal_failure;
        return;
    }
    KM_KILL_POINT("execute.before_tree");
    do_execute(at.action, tree_phase);
    KM_KILL_POINT("execute.after_tree");
    operation_phase = tree_phase == p_do ? u"commit_cleanup" : u"prepare_cleanup";
    at.cleanup = tree_phase == p_do ? p_do_cleanup : p_prepare_cleanup;
    at.target = next_status(entry.operation_in_progress, cs_initial);
    KM_TRACE(trace_info, "common", "execute/reverse returned a result = %d",
             static_cast<int>(result));
    fold_execution(at);
}

void cm_package::run_cleanup(const run& at) {
    do_execute(at.action, at.cleanup);
    KM_TRACE(trace_info, "common", "cleanup returned a result = %d", static_cast<int>(result));
}

void cm_package::fold_execution(run& at) {
    auto& entry = *catalog_entry;
    const auto outcome = result;
    switch (outcome) {
    case success:
    case warning:
        executed = 1;
        run_cleanup(at);
        if (result != success || outcome != success)
            result = warning;
        entry.current_result = 0;
        entry.entry_operation_result = result;
        entry.current_cm_status = at.target;
        return;
    case success_reboot_now:
    case success_reboot_now_reexecute:
        entry.current_result = outcome;
        KM_TRACE(trace_warning, "common", "We are going to reboot now");
        return;
    case success_reboot_after:
        entry.current_result = outcome;
        KM_TRACE(trace_warning, "common", "We are going to reboot after");
        return;
    case success_reboot_after_reexecute:
        entry.current_result = outcome;
        KM_TRACE(trace_warning, "common", "We are going to reboot to reexecute");
        return;
    case success_in_a_reboot:
        executed = 1;
        run_cleanup(at);
        result = success_in_a_reboot;
        executed = 0;
        entry.current_result = success_in_a_reboot;
        entry.entry_operation_result = success_in_a_reboot;
        entry.current_cm_status = at.target;
        return;
    case success_retry:
        entry.current_result = success_retry;
        KM_TRACE(trace_warning, "common", "We are going to retry");
        return;
    case temporary_failure:
    case failure:
        fail_execution(at, outcome);
        return;
    default:
        entry.current_result = 0;
        entry.entry_operation_result = outcome;
        entry.cm_status = at.target;
        entry.current_cm_status = cs_error;
        entry.operation_in_progress = o_none;
        result = fatal_failure;
    }
}

void cm_package::fail_execution(run& at, cm_result outcome) {
    auto& entry = *catalog_entry;
    executed = 1;
    entry.current_result = 0;
    entry.entry_operation_result = outcome;
    if (at.action == a_reverse && outcome == failure)
        cleanup_flag = 0; // what a retry needs stays
    run_cleanup(at);
    cleanup_flag = 1;
    result = outcome;
    const int operation = entry.operation_in_progress;
    if (operation == o_execute || (operation == o_prepare && at.action == a_reverse)) {
        entry.cm_status = at.target;
        entry.current_cm_status = cs_error;
        entry.operation_in_progress = o_none;
        internal_error = ie_do_failed;
        result = failure;
        return;
    }
    if (operation != o_execute_undoable && operation != o_prepare &&
        operation != o_prepare_undoable && operation != o_prepare_undo_prepare) {
        internal_error = ie_operation;
        result = fatal_failure;
        return;
    }
    entry.current_cm_status = at.target;
    external_call = 0;
    if (operation == o_execute_undoable) {
        entry.operation_in_progress = o_undo;
        KM_TRACE(trace_warning, "common", "perform an undo to cleanup");
        undo(1, at.call_argument);
        internal_error = ie_do_failed;
    } else {
        entry.operation_in_progress = o_rollback;
        KM_TRACE(trace_warning, "common", "perform a rollback to cleanup");
        rollback(at.mode, at.call_argument);
        internal_error = ie_prepare_failed;
    }
    external_call = 1;
    result = outcome;
}

// Auto-commit: the second half in the same call. False ends execute with at.answer.
bool cm_package::commit_leg(run& at) {
    if ((result != success && result != warning) || !(at.mode & m_auto_commit) ||
        !(at.mode & m_transactional))
        return true;
    auto& entry = *catalog_entry;
    if (has_no_reboot_flags()) {
        KM_TRACE(trace_info, "common", "it was a transactional autocommit no reboot operation");
        entry.cm_status = entry.current_cm_status;
        entry.operation_in_progress = o_none;
        if (download_newsp() > warning) {
            at.answer = fatal_failure;
            return false;
        }
    }
    KM_KILL_POINT("execute.before_commit");
    next_resume_stage = run::from_commit;
    external_call = 0;
    entry.operation_requested = 0;
    entry.operation_in_progress = o_commit;
    result = commit(at.mode, at.call_argument);
    const int reached = catalog_entry->current_cm_status;
    if (reached == cs_prepared)
        catalog_entry->operation_requested = o_prepare;
    else if (reached == cs_prepared_undo_prepared || reached == cs_prepared_undoable)
        catalog_entry->operation_requested = o_prepare_undoable;
    external_call = 1;
    at.warned = result == warning;
    return true;
}

void cm_package::accept_leg(run& at) {
    constexpr std::uint32_t undoable_bits =
        m_preferably_undoable | m_undoable | m_undo_ability_transactional;
    if ((result != success && result != warning) || !(at.mode & m_auto_accept) ||
        !(at.mode & undoable_bits))
        return;
    next_resume_stage = run::from_accept;
    external_call = 0;
    catalog_entry->operation_in_progress = o_accept;
    const auto answer = accept(at.mode, at.call_argument);
    external_call = 1;
    if (answer == warning)
        at.warned = true;
    result = answer;
}

} // namespace km
