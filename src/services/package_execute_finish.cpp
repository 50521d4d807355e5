// package_execute_finish: what execute stores at its end
// no format
// invariants: the old profile goes only behind the store of the entry that names the new one; a
// reboot is asked for last
#include "base/msg_supp.h"
#include "detail_package_execute.h"
#include "detail_package_store.h"
#include "dynamic_variables.h"
#include "engine_exit.h"
#include "file.h"
#include "kill_point.h"
#include "restart.h"
#include "sp_object.h"
#include "status_words.h"
#include "trclog.h"

namespace km {

cm_result cm_package::finish_execute(run& at) {
    if (!catalog_entry)
        return result;
    at.old_profile = catalog_entry->profile_name;
    KM_TRACE(trace_info, "common", "old profile is %s", at.old_profile.mbcs_str());
    KM_TRACE(trace_info, "common", "final package result is %d", static_cast<int>(result));
    if (!choose_profile(at) || !store_outcome(at))
        return fatal_failure;
    if ((catalog_entry->cm_status == cs_committed || (at.mode & m_force)) &&
        catalog_entry->inverse_action && !(catalog_entry->profile_name == at.old_profile))
        remove_profile(at.old_profile);
    KM_TRACE(trace_info, "common", "delete previous_catalog_entry");
    delete _previous_catalog_entry;
    _previous_catalog_entry = nullptr;
    return at.warned ? warning : result;
}

// A repair runs a part of the tree only: its commands go into the tree of the old profile.
bool cm_package::choose_profile(run& at) {
    at.profile = this;
    if (!(at.mode & (m_source | m_repair)))
        return true;
    cm_package* old_tree = nullptr;
    sp_object reader(messages);
    cm_package* const dynamic = dynamic_variable_list::get_package();
    const auto decoded = reader.decode(old_tree, at.old_profile, 1, sp_object::either);
    dynamic_variable_list::set_package(dynamic);
    at.merged.reset(old_tree);
    if (decoded != success || !old_tree) {
        KM_TRACE(trace_error, "common", "Unable to decode Original SoftwarePackage from file '%s'",
                 at.old_profile.mbcs_str());
        return false;
    }
    add_to_package(old_tree);
    old_tree->catalog = catalog;
    old_tree->reference_table = reference_table;
    old_tree->set_error_message(messages);
    old_tree->executed = executed;
    old_tree->resume_stage = resume_stage;
    old_tree->web_view_mode = web_view_mode;
    old_tree->mode = mode;
    old_tree->connected = connected;
    old_tree->result = result;
    at.profile = old_tree;
    return true;
}

bool cm_package::store_outcome(run& at) {
    switch (result) {
    case success_reboot_now:
    case success_reboot_now_reexecute:
    case success_reboot_after:
    case success_reboot_after_reexecute:
    case success_in_a_reboot:
    case success_retry:
        return store_pending(at);
    case warning:
        at.warned = true;
        return store_success(at);
    case success:
        return store_success(at);
    case temporary_failure:
        if ((at.mode & m_transactional) && (at.mode & m_auto_commit) && has_no_reboot_flags()) {
            KM_TRACE(trace_info, "common", "it was a transactional autocommit no reboot operation");
            return true;
        }
        return store_failure(at);
    case failure:
    case fatal_failure:
        return store_failure(at);
    default:
        return true;
    }
}

// Writes the profile under a new name, which the entry takes.
bool cm_package::write_new_profile(run& at) {
    pathname path;
    if (!get_new_profile_name(path)) {
        KM_TRACE(trace_error, "common", "Error getting  new profile name");
        return false;
    }
    KM_KILL_POINT("finish.before_profile");
    if (!at.profile->download_list(path, 1)) {
        KM_TRACE(trace_error, "common", "Error downloading the list");
        file(path).remove(0);
        return false;
    }
    KM_KILL_POINT("finish.after_profile");
    catalog_entry->profile_name = path;
    return true;
}

bool cm_package::store_pending(run& at) {
    restart helper;
    helper.set_package(this);
    at.profile->resume_stage = next_resume_stage;
    if (!write_new_profile(at))
        return false;
    if (!store_entry_now(*this)) {
        helper.remove_restart_condition();
        helper.remove_restart();
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
        internal_error = ie_catalog_update;
        return false;
    }
    remove_profile(at.old_profile);
    if (result == success_retry) {
        if (net_channel)
            net_channel->close();
        KM_TRACE(trace_error, "common", "network error!!! .. force exit");
        engine_exit(0, "the package stream was lost; the operation goes on from its profile");
    }
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

bool cm_package::store_success(run& at) {
    auto& entry = *catalog_entry;
    if (save_default_variables_flag && at.action == a_execute && (at.mode & m_binary_file))
        save_default_variables();
    at.profile->resume_stage = run::from_start;
    entry.cm_status = entry.current_cm_status;
    entry.operation_in_progress = o_none;
    at.profile->encode_messages = 0;
    // What leaves the catalog at once keeps its old profile for this moment.
    const bool leaves =
        entry.cm_status == cs_committed && entry.inverse_action && entry.last_action == a_reverse;
    if (!leaves && !write_new_profile(at))
        return false;
    entry.set_discovered(0);
    if (!store_entry_now(*this)) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry");
        internal_error = ie_catalog_update;
        return false;
    }
    if (!leaves)
        remove_profile(at.old_profile);
    if (leaves) {
        KM_TRACE(trace_info, "common", "delete references in case.....");
        if (delete_package_reference(1, 1) != success)
            return false;
    }
    if (history_reset == 1 && entry.last_action == a_execute && !reset_history()) {
        KM_TRACE(trace_error, "common", "History Reset FAILED!");
        return false;
    }
    return true;
}

bool cm_package::store_failure(run& at) {
    return catalog_entry->current_cm_status == cs_error ? store_error(at) : drop_failed_run(at);
}

bool cm_package::store_error(run& at) {
    KM_TRACE(trace_error, "common", "Package goes in error");
    auto& entry = *catalog_entry;
    if (catalog && catalog->get(catalog_key) && entry.inverse_action &&
        entry.last_action == a_reverse) {
        KM_TRACE(trace_info, "common", "last action inverts and is reverse");
        if (_previous_catalog_entry) {
            entry = *_previous_catalog_entry;
            entry.current_cm_status = cs_error;
        }
    }
    at.profile->resume_stage = run::from_start;
    at.profile->encode_messages = 0;
    if (!write_new_profile(at))
        return false;
    if (!store_entry_now(*this)) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry");
        internal_error = ie_catalog_update;
        return false;
    }
    remove_profile(at.old_profile);
    return true;
}

// A run that was taken back, or that changed nothing: the catalog tells of it no more.
bool cm_package::drop_failed_run(run&) {
    auto& entry = *catalog_entry;
    if (!catalog || !catalog->get(catalog_key))
        return true;
    const auto store_as_error = [&] {
        entry.current_cm_status = cs_error;
        if (!store_entry_now(*this))
            KM_TRACE(trace_error, "common", "Error updating the catalog entry");
    };
    if (!entry.inverse_action) {
        KM_TRACE(trace_info, "common", "last action not equals the current one");
        if (delete_package_reference(1, 1) != success)
            store_as_error();
        return true;
    }
    // In a chain the commit may have been taken back, whatever was asked for at first.
    if (entry.operation_requested != o_execute_undoable &&
        entry.operation_requested != o_prepare_undoable && entry.current_cm_status != cs_initial)
        return true;
    KM_TRACE(trace_info, "common", "there is a backup package done");
    const cm_catalog_entry promising(entry);
    // First: its profile may have taken the name of the one that the previous entry had.
    forget_run_of_backup(*this, promising.undo_package_name);
    restore_previous_entry();
    if (!store_without_backup(*this, promising)) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry");
        internal_error = ie_catalog_update;
        return false;
    }
    if (!(promising.profile_name == entry.profile_name))
        remove_profile(promising.profile_name);
    return true;
}

// The entry as it was before an inverted action, in memory. Its profile may have gone at a
// checkpoint; the present one holds the same tree.
void cm_package::restore_previous_entry() {
    if (!_previous_catalog_entry)
        return;
    const pathname present = catalog_entry->profile_name;
    *catalog_entry = *_previous_catalog_entry;
    if (!check_package_existence(catalog_entry->profile_name))
        catalog_entry->profile_name = present;
}

} // namespace km
