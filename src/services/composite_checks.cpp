// composite_checks: asking of children before anything runs
// no format
// invariant: nothing but `result` fields changes, except where data are stepped over
#include "base/msg_supp.h"
#include "command_filter.h"
#include "composite_command.h"
#include "expression.h"
#include "log_objects.h"
#include "package.h"
#include "trclog.h"

#include <memory>

namespace km {

namespace {
cm_command* next_command(list_iterator& at) { return static_cast<cm_command*>(at.nextElement()); }
} // namespace

void cm_composite_command::note_offset() {
    if (auto* channel = package ? package->get_input_channel() : nullptr)
        package->current_offset = channel->get_bytes_read();
}

bool cm_composite_command::stops_on_failure() {
    return (package && package->get_stop_on_failure()) || stop_on_failure;
}

int cm_composite_command::check_condition(cm_command* command, int skip_when_false) {
    km::condition when(command->condition);
    if (when.evaluate(nullptr))
        return 1;
    if (!when.error.empty()) {
        KM_TRACE(trace_error, "common", "Error: Condition wrongly evaluated for %s",
                 command->get_name().mbcs_str());
        if (package && package->messages)
            package->messages->add(130L, command->condition.mbcs_str());
        result = fatal_failure;
        return 0;
    }
    KM_TRACE(trace_info, "common", "Condition evaluated to false for %s",
             command->get_name().mbcs_str());
    // A connected run that resumes behind this command finds the stream behind its data already.
    const bool already_past =
        package && package->connected && package->restart_offset && command->get_executed() == 1;
    if (!skip_when_false || already_past)
        return 0;
    note_offset();
    command->skip_data();
    if (command->result != success) {
        KM_TRACE(trace_error, "common", "Error: cannot skip data");
        result = command->result == success_retry ? success_retry : fatal_failure;
    }
    return 0;
}

void cm_composite_command::skip_data() {
    list_iterator from(children);
    skip_data(from);
}

void cm_composite_command::skip_data(list_iterator& from) {
    result = success;
    auto* channel = package ? package->get_input_channel() : nullptr;
    while (from.hasMoreElements()) {
        cm_command* child = next_command(from);
        if (channel && child->get_executed()) {
            KM_TRACE(trace_info, "common", "already skipped");
            continue;
        }
        note_offset();
        child->skip_data();
        if (child->result == success) {
            child->set_executed(1);
            continue;
        }
        if (child->result == success_retry) {
            result = success_retry;
            KM_TRACE(trace_error, "common", "force network error result!!");
            if (package && package->not_compressed_installation)
                child->set_executed(1);
        } else {
            result = fatal_failure;
            KM_TRACE(trace_error, "common", "failed in skipping data");
        }
        return;
    }
}

// The condition on the package itself; false ends the operation with message 131.
bool cm_composite_command::root_condition_holds() {
    if (check_condition(this, 0))
        return true;
    if (result != fatal_failure) {
        if (package->messages)
            package->messages->add(131L, condition.mbcs_str());
        result = failure;
    }
    return false;
}

void cm_composite_command::can_execute(int action, int phase) {
    KM_TRACE_FUNCTION("cm_composite_command::can_execute");
    result = package ? success : failure;
    if (!package)
        return;
    if (package == this && (!package->get_executed() || package->restart_internal) &&
        !root_condition_holds())
        return;
    for (list_iterator at(children); at.hasMoreElements();) {
        cm_command* child = next_command(at);
        if (!check_condition(child, 0)) {
            if (result == fatal_failure) {
                package->operation_result = u"fatal_failure";
                return;
            }
            continue;
        }
        if (child->is_to_be_executed() && check_child(*child, action, phase) == step::stop)
            return;
    }
}

// A temporary failure does not end the check of the other children, so that all of them get to
// report; the run itself (do_execute) is different.
cm_composite_command::step cm_composite_command::check_child(cm_command& child, int action,
                                                             int phase) {
    constexpr std::uint32_t wrong_device = 6;
    child.can_execute(action, phase);
    switch (child.result) {
    case success:
    case success_reboot_now_reexecute:
    case success_reboot_after_reexecute:
    case warning:
        return step::go_on;
    case temporary_failure:
        if (stops_on_failure()) {
            KM_TRACE(trace_error, "common", "we stop on temporary failure");
            log_temporary_failure(child, action, phase);
            result = temporary_failure;
        }
        package->operation_result = u"temporary_failure";
        return step::go_on;
    case failure:
        if (stops_on_failure() || (package->device_failures & wrong_device) == wrong_device) {
            KM_TRACE(trace_error, "common", "we stop on failure");
            result = failure;
            return step::stop;
        }
        package->operation_result = u"permanent_failure";
        return step::go_on;
    default:
        result = fatal_failure;
        package->operation_result = u"fatal_failure";
        return step::stop;
    }
}

void cm_composite_command::log_temporary_failure(cm_command& child, int action, int phase) {
    auto* log = package->log_object_list;
    if ((package->mode & m_preferably_not_transactional) || !log || is_quiet_phase(phase) ||
        !child.is_to_be_logged())
        return;
    if (!log->is_open_for(package))
        log->log_package(package);
    const auto kept = child.result;
    child.result = failure;
    log->log_command(&child, action, phase);
    child.result = kept;
}

void cm_composite_command::can_backup(int action) {
    KM_TRACE_FUNCTION("cm_composite_command::can_backup");
    result = package ? success : failure;
    if (!package || (package == this && !root_condition_holds()))
        return;
    for (list_iterator at(children); at.hasMoreElements();) {
        cm_command* child = next_command(at);
        if (!(static_cast<std::uint32_t>(child->get_scope()) & package->effective_mask()))
            continue;
        if (!check_condition(child, 0)) {
            if (result == fatal_failure)
                return;
            continue;
        }
        child->can_backup(action);
        if (child->result == success)
            continue;
        result = child->result;
        if (child->result != temporary_failure)
            return;
        package->operation_result = u"temporary_failure";
    }
}

// The undo tree comes out in the reverse of the stored order where an action is undone, so that it
// is ready to run forward.
cm_command* cm_composite_command::do_backup(cm_command* source, cm_command* parent, int action) {
    KM_TRACE_FUNCTION("cm_composite_command::do_backup");
    result = package ? success : failure;
    if (!package)
        return nullptr;
    std::unique_ptr<cm_command> made(source->get_undo_command(action));
    if (source->result != success) {
        result = source->result;
        KM_TRACE(trace_error, "common", "get_undo_command result is %d",
                 static_cast<int>(source->result));
        return nullptr;
    }
    cm_command* undo = made.get();
    if (undo)
        undo->set_command_index(source->command_index);
    if (undo && parent)
        parent->add(made.release(), nullptr);
    const bool backwards = action == a_execute && reverse_on_remove;
    auto* end = children.sentinel();
    for (auto* at = backwards ? end->prev : end->next; at != end;
         at = backwards ? at->prev : at->next) {
        auto* child = static_cast<cm_command*>(at);
        if (!(static_cast<std::uint32_t>(child->get_scope()) & package->effective_mask()))
            continue;
        if (!check_condition(child, 0)) {
            if (result == fatal_failure)
                return nullptr;
            continue;
        }
        cm_command* built = child->do_backup(child, undo, action);
        if (!undo)
            delete built; // nowhere to put it
        if (child->result != success) {
            result = child->result;
            return nullptr;
        }
    }
    made.release(); // the caller's, or the parent's
    return undo;
}

int cm_composite_command::not_verify(filter_command_algorithm& filter) {
    result = success;
    if (!check_condition(this, 0) || !is_to_be_executed())
        return 0;
    bool failed = false;
    for (list_iterator at(children); at.hasMoreElements();) {
        cm_command* child = next_command(at);
        if (check_condition(child, 0) && child->not_verify(filter))
            failed = true;
    }
    if (!failed)
        return 0;
    result = failure;
    return 1;
}

int cm_composite_command::select_commands(filter_command_algorithm& filter, int evaluate,
                                          int reserved) {
    if (evaluate && !check_condition(this, 0)) {
        children.clear();
        return 0;
    }
    for (list_iterator at(children); at.hasMoreElements();) {
        cm_command* child = next_command(at);
        if (!child->select_commands(filter, evaluate, reserved))
            children.remove(child);
    }
    return children.size() > 0;
}

} // namespace km
