// command: base of every node of the command tree
// no format
// invariant: `executed` of a command is written by the walk above it, never by the command itself
#include "command.h"

#include "base/msg_supp.h"
#include "command_filter.h"
#include "command_index.h"
#include "package.h"
#include "preview.h"
#include "trclog.h"

#include <cstring>
#include <memory>

namespace km {

namespace {
constexpr const char* result_texts[] = {
    "success",
    "success_reboot_now",
    "success_reboot_now_reexecute",
    "success_reboot_after",
    "success_reboot_after_reexecute",
    "success_in_a_reboot",
    "success_retry",
    "warning",
    "temporary_failure",
    "failure",
    "fatal_failure",
    "failure_with_info",
};
}

const char* result_text(int result) {
    return result >= 0 && result < static_cast<int>(std::size(result_texts)) ? result_texts[result]
                                                                             : "";
}

cm_command::cm_command() : command_index(global_index::instance().value()) {}

cm_command* cm_command::get_command_executed(int) { return nullptr; }
void cm_command::add(cm_command*, cm_command*) {}
void cm_command::remove(cm_command*) {}
void cm_command::can_execute(int, int) {}
void cm_command::do_execute(int, int) {}
void cm_command::can_backup(int) {}
cm_command* cm_command::get_undo_command(int) { return nullptr; }
long cm_command::get_size() { return 0; }

int cm_command::get_timeout(int* count, int, bool, bool) {
    if (count)
        ++*count;
    return 0;
}

void cm_command::delta_save_command(pathname*, unzipping_channel*, zipping_channel*) {
    result = success;
}
void cm_command::save_command(unzipping_channel*, zipping_channel*) { result = success; }
void cm_command::save_command(zipping_channel*) { result = success; }
void cm_command::load_command(const int) { result = success; }
void cm_command::skip_data() { result = success; }

void cm_command::set_data_source(ustring, int, pathname*) {}
int cm_command::is_bootable(int, int) { return 0; }
void cm_command::set_package(cm_package* of) { package = of; }
cm_package* cm_command::get_package() { return package; }
void cm_command::set_executed(int done) { executed = done; }
void cm_command::set_executed_all(int done) { executed = done; }
int cm_command::get_executed() { return executed; }
int cm_command::get_command_index() { return command_index; }
void cm_command::set_command_index(int index) { command_index = index; }

void cm_command::reset_command_status() {
    executed = 0;
    result = success;
}

void cm_command::set_container(cm_command*) {}
void cm_command::set_name(ustring) {}
ustring cm_command::get_name() { return {}; }
ustring cm_command::get_log(int) { return get_name(); }
int cm_command::get_scope() { return scope; }
int cm_command::get_execute_in_commit() { return execute_in_commit; }
int cm_command::is_to_be_reexecuted() { return 0; }
int cm_command::override_is_effective() { return 0; }
int cm_command::is_to_be_logged() { return to_be_logged; }
void cm_command::set_to_be_logged(int logged) { to_be_logged = logged; }

// While the package is not executed, the walk runs what is not executed yet: a resumed operation
// thus goes on behind the point where it stopped. Once the package is executed (cleanup, commit,
// accept), the walk visits what was done, and what asked to be run again after a reboot.
int cm_command::is_due() {
    const int package_executed = package->get_executed();
    const auto mask = package->effective_mask();
    KM_TRACE(trace_info, "common", "executed of package is....... %d", package_executed);
    KM_TRACE(trace_info, "common", "executed of command is....... %d", executed);
    KM_TRACE(trace_info, "common", "last result of package is.... %d",
             static_cast<int>(package->_last_result));
    KM_TRACE(trace_info, "common", "result of command is......... %d", static_cast<int>(result));
    KM_TRACE(trace_info, "common", "scope of command is.......... %d", get_scope());
    KM_TRACE(trace_info, "common", "package mask is.............. %d", static_cast<int>(mask));
    KM_TRACE(trace_info, "common", "executed_in_commit........... %d", execute_in_commit);
    if (execute_in_commit == 1) {
        KM_TRACE(trace_info, "common", "executed_in_commit ->   return FALSE");
        return 0;
    }
    if (!(static_cast<std::uint32_t>(get_scope()) & mask)) {
        KM_TRACE(trace_info, "common", "scope different from the package mask  ->   return FALSE");
        return 0;
    }
    if (!package_executed) {
        if (executed)
            return 0;
        KM_TRACE(trace_info, "common", "both package and command NOT executed  ->   return TRUE");
        return 1;
    }
    if (executed == 1) {
        KM_TRACE(trace_info, "common", "both package and command executed  ->   return TRUE");
        return 1;
    }
    if (executed == 0 &&
        (result == success_reboot_now_reexecute || result == success_reboot_after_reexecute)) {
        KM_TRACE(trace_info, "common",
                 "packages is executed, command not executed and result is success_reboot_... ->   "
                 "return TRUE");
        return 1;
    }
    return 0;
}

int cm_command::is_to_be_executed() {
    KM_TRACE_FUNCTION_OFTEN("cm_command::is_to_be_executed");
    if (!package || !is_due())
        return 0;
    if (!package->undo_only_executed_actions || !package->is_backup_package ||
        !package->partner_package)
        return 1;
    cm_command* undone = package->partner_package->get_command_executed(command_index);
    return undone ? undone->get_executed() : 1;
}

cm_command* cm_command::do_backup(cm_command* source, cm_command* parent, int action) {
    std::unique_ptr<cm_command> undo(source->get_undo_command(action));
    result = source->result;
    if (source->result != success)
        return nullptr;
    if (!parent || !undo)
        return undo.release();
    undo->set_command_index(source->command_index);
    cm_command* added = undo.release();
    parent->add(added, nullptr);
    added->scope = get_scope();
    return added;
}

cm_command* cm_command::find(ustring name, int exact) {
    const bool found = exact == 1 ? get_name() == name : get_name().matches_pattern(name, 0);
    return found ? this : nullptr;
}

void cm_command::iserr_can_execute() {
    if (result == success || result == warning || result == temporary_failure)
        return;
    if (package && package->messages)
        package->messages->add(199L, get_name().mbcs_str());
}

void cm_command::iserr_can_backup() {
    if (result == success || result == warning)
        return;
    if (package && package->messages)
        package->messages->add(200L, get_name().mbcs_str());
}

void cm_command::preview(preview_operation& operation) { operation(*this); }

int cm_command::not_verify(filter_command_algorithm& filter) { return !filter(*this); }

int cm_command::select_commands(filter_command_algorithm& filter, int, int) {
    return filter(*this);
}

void cm_command::add_to_package(cm_package* into) {
    auto* copy = static_cast<cm_command*>(clone());
    cm_command* existing = into->find(get_name(), 1);
    if (!existing) {
        into->add(copy, nullptr);
    } else {
        // The list keeps its count: one link takes the place of another.
        copy->prev = existing->prev;
        copy->next = existing->next;
        copy->prev->next = copy;
        copy->next->prev = copy;
        existing->prev = existing->next = nullptr;
        delete existing;
    }
    copy->set_package(into);
}

ustring cm_command::map_result(int, int) { return ustring(result_text(result)); }

cm_command* cm_command::find_by_codable_name(const char* name) {
    const char* own = codable_name();
    return own && name && std::strcmp(own, name) == 0 ? this : nullptr;
}

} // namespace km
