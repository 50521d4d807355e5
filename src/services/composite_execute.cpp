// composite_execute: walk over children and folding of results
// no format
// invariants: a command's data are consumed exactly once, by itself or by skip_data; the profile
// and the entry of a checkpoint stand before the command that may reboot runs
#include "base/msg_supp.h"
#include "catalog.h"
#include "composite_command.h"
#include "detail_package_store.h"
#include "engine_hooks.h"
#include "log_objects.h"
#include "package.h"
#include "restart.h"
#include "trclog.h"

#include <cstring>

namespace km {

// Taking back runs last to first, and so do the cleanups behind the phases that did the work.
bool cm_composite_command::walks_forward(int action, int phase) const {
    if (action == a_execute)
        return (phase != p_commit_cleanup && phase != p_do_cleanup) || !reverse_on_remove;
    if (action == a_verify_execute || action == a_verify_reverse)
        return true;
    return !reverse_on_remove;
}

bool cm_composite_command::logs_in(int phase) const {
    return package->log_object_list && !is_quiet_phase(phase);
}

void cm_composite_command::begin_walk(int phase) {
    package->_curr_result = package->_last_result;
    package->_last_result = 0;
    if (logs_in(phase))
        package->log_object_list->log_package(package);
}

void cm_composite_command::do_execute(int action, int phase) {
    KM_TRACE_FUNCTION("cm_composite_command::do_execute");
    result = success;
    if (!package) {
        result = failure;
        return;
    }
    if (package == this)
        begin_walk(phase);
    const bool forward = walks_forward(action, phase);
    auto* end = children.sentinel();
    list_iterator at(children);
    at.set_current(forward ? end->next : end->prev);
    while (at.hasMoreElements()) {
        auto* current = at.get_current();
        if (visit(at, action, phase) == step::stop)
            return;
        at.set_current(forward ? current->next : current->prev);
    }
    fold_bits();
}

cm_composite_command::step cm_composite_command::visit(list_iterator& at, int action, int phase) {
    auto& child = static_cast<cm_command&>(*at.get_current());
    const int already_executed = child.get_executed();
    const bool consumes = action == a_execute && (phase == p_do || phase == p_prepare);
    if (!check_condition(&child, consumes))
        return skip_false_child(child, action, phase, already_executed);
    const bool due = child.is_to_be_executed();
    if (!due) {
        if (!child.get_execute_in_commit() || (phase != p_commit_cleanup && phase != p_do_cleanup))
            return step::go_on;
        KM_TRACE(trace_info, "common",
                 "The command was executed during a commit, now it must be cleaned up");
    }
    return run_child(at, child, action, phase);
}

cm_composite_command::step cm_composite_command::skip_false_child(cm_command& child, int action,
                                                                  int phase, int already_executed) {
    if (result == fatal_failure || result == success_retry) {
        if (result == success_retry && package->not_compressed_installation)
            child.set_executed(1);
        return step::stop;
    }
    child.set_executed(1);
    const char* kind = child.codable_name();
    if (action == a_execute && (phase == p_prepare || phase == p_do) && !already_executed && kind &&
        std::strstr(kind, "CmGenericContainer") && package->messages) {
        const ustring label = child.caption.empty() ? ustring(u" ") : child.caption;
        package->messages->add(788L, child.condition.mbcs_str(), label.mbcs_str());
    }
    return step::go_on;
}

cm_composite_command::step cm_composite_command::run_child(list_iterator& at, cm_command& child,
                                                           int action, int phase) {
    const bool bootable = child.is_bootable(action, phase);
    const bool checkpoint = package->is_checkpoint_to_be_executed();
    if ((bootable || checkpoint) && !prepare_checkpoint(bootable, checkpoint)) {
        result = failure;
        return step::stop;
    }
    if (action == a_execute)
        note_offset();
    child.do_execute(action, phase);
    if (bootable) {
        restart helper;
        helper.set_package(package);
        if (!helper.remove_restart_condition()) {
            KM_TRACE(trace_error, "common", "Error removing the restart condition");
            result = failure;
            return step::stop;
        }
    }
    if (logs_in(phase))
        log_child(child, action, phase);
    package->operation_result = child.map_result(action, phase);
    package->note_progress(child);
    if (fold(at, child, action, phase) == step::stop)
        return step::stop;
    if (phase == p_backup_finish)
        child.set_executed(0);
    return step::go_on;
}

void cm_composite_command::log_child(cm_command& child, int action, int phase) {
    if (child.is_to_be_logged())
        package->log_object_list->log_command(&child, action, phase);
    else
        KM_TRACE(trace_info, "common", "this action must not be logged");
}

// Ends the walk with a result that cannot wait.
cm_composite_command::step cm_composite_command::end_walk_with(enum result code) {
    result = code;
    package->_last_result = package->_curr_result;
    return step::stop;
}

cm_composite_command::step cm_composite_command::fold(list_iterator& at, cm_command& child,
                                                      int action, int phase) {
    const auto run_again = [&child] {
        child.set_executed(0);
        child.execute_in_commit = 0;
    };
    switch (child.result) {
    case success:
        child.set_executed(1);
        return step::go_on;
    case success_reboot_now:
        child.set_executed(1);
        return end_walk_with(success_reboot_now);
    case success_reboot_now_reexecute:
        run_again();
        return end_walk_with(success_reboot_now_reexecute);
    case success_reboot_after:
        child.set_executed(1);
        package->_curr_result |= bit_reboot_after;
        return step::go_on;
    case success_reboot_after_reexecute:
        run_again();
        package->_curr_result |= bit_reboot_reexecute;
        return step::go_on;
    case success_in_a_reboot:
        child.set_executed(1);
        package->_curr_result |= bit_in_a_reboot;
        return step::go_on;
    case success_retry:
        if (package->not_compressed_installation)
            child.set_executed(1);
        else
            run_again();
        return end_walk_with(success_retry);
    case warning:
        child.set_executed(1);
        package->_curr_result |= bit_warning;
        return step::go_on;
    case temporary_failure:
    case failure:
        // Marked as executed, so that taking back reaches what it half did.
        child.set_executed(1);
        return stop_or_note_failure(at, child, action, phase);
    default:
        run_again();
        result = fatal_failure;
        package->operation_result = u"fatal_failure";
        return step::stop;
    }
}

cm_composite_command::step cm_composite_command::stop_or_note_failure(list_iterator& at,
                                                                      cm_command& child, int action,
                                                                      int phase) {
    if (!stops_on_failure()) {
        package->_curr_result |= bit_warning;
        package->operation_result =
            child.result == failure ? u"permanent_failure" : u"temporary_failure";
        return step::go_on;
    }
    KM_TRACE(trace_error, "common", "we stop on failure");
    if (!package->get_stop_on_failure() && action == a_execute &&
        (phase == p_do || phase == p_prepare)) {
        at.nextElement();
        skip_data(at); // the parent goes on reading the stream
    }
    result = failure;
    return step::stop;
}

void cm_composite_command::fold_bits() {
    struct row {
        std::uint32_t test;
        std::uint32_t clear;
        enum result outcome;
    };
    static constexpr row rows[] = {
        {bit_reboot_reexecute, bit_reboot_reexecute | bit_reboot_after,
         success_reboot_after_reexecute},
        {bit_reboot_after, bit_reboot_after, success_reboot_after},
        {bit_in_a_reboot, bit_in_a_reboot, success_in_a_reboot},
        {bit_warning, bit_warning, warning},
    };
    result = success;
    for (const row& one : rows) {
        if (!(package->_curr_result & one.test))
            continue;
        package->_curr_result &= ~one.clear;
        result = one.outcome;
        package->_last_result = package->_curr_result;
        return;
    }
}

// Writes the tree as it stands to a new profile and stores the entry that names it, so that the
// operation can go on here.
bool cm_composite_command::prepare_checkpoint(bool bootable, bool checkpoint) {
    if (!package->catalog_entry) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
        return false;
    }
    package->resume_stage = package->next_resume_stage;
    pathname new_profile;
    if (!package->get_new_profile_name(new_profile)) {
        KM_TRACE(trace_error, "common", "Error getting new  profile name");
        return false;
    }
    if (auto* channel = package->get_input_channel(); channel && channel->get_bytes_read())
        package->current_offset = channel->get_bytes_read();
    if (!package->download_list(new_profile, 1)) {
        KM_TRACE(trace_error, "common", "Error downloading the list");
        remove_profile(new_profile);
        return false;
    }
    if (!store_checkpoint(new_profile))
        return false;
    if (bootable) {
        restart helper;
        helper.set_package(package);
        if (!helper.prepare_restart_condition()) {
            KM_TRACE(trace_error, "common", "Error preparing the restart condition");
            return false;
        }
    }
    if (checkpoint) {
        KM_TRACE(trace_info, "common", "resetting checkpoint offset ");
        package->check_point_offset = package->get_input_channel()->get_bytes_read();
    }
    return true;
}

namespace {
// What is stored says that a reboot is pending; the working entry keeps its result.
bool store_at_checkpoint(cm_package& of) {
    cm_catalog_entry entry(*of.catalog_entry);
    entry.current_result = cm_command::success_reboot_now;
    return store_entry(of, entry);
}
} // namespace

// The old profile goes only when both entries that may name a state are stored.
bool cm_composite_command::store_checkpoint(const pathname& new_profile) {
    const pathname old_profile = package->catalog_entry->profile_name;
    package->catalog_entry->profile_name = new_profile;
    if (!store_at_checkpoint(*package)) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
        return false;
    }
    cm_package* undone = package->partner_package;
    if (package->executing_as_undo) {
        KM_TRACE(trace_info, "common", "working with the undo package");
        KM_TRACE(trace_info, "common", "package orig name=%s", package->original_name.mbcs_str());
        KM_TRACE(trace_info, "common", "package orig version=%s",
                 package->original_version.mbcs_str());
        if (!undone || !undone->catalog_entry || !store_at_checkpoint(*undone)) {
            KM_TRACE(trace_error, "common",
                     "Error updating the catalog entry for the original package");
            return false;
        }
    }
    remove_profile(old_profile);
    return true;
}

} // namespace km
