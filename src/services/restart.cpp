// restart: command that asks for a reboot
// format: docs/formats/package-file.md
// invariant: nothing here reboots; the host does, after the operation
#include "restart.h"

#include "codec.h"
#include "engine_hooks.h"
#include "exporter.h"
#include "file.h"
#include "importer.h"
#include "package.h"
#include "text_file.h"
#include "trclog.h"

#include <new>

namespace km {

const char* restart::codable_name() const { return "com.ombrel.sd.cmObjects.CmRestart"; }

void restart::encode_object(encoder& to) const {
    cm_command::encode_object(to);
    to.encode_integer_field(200, restart_type);
    to.encode_integer_field(201, during_install);
    to.encode_integer_field(202, during_remove);
    to.encode_integer_field(203, during_undo);
    to.encode_integer_field(204, during_commit);
    to.encode_long_field(205, timeout);
    to.encode_boolean_field(206, force_restart);
}

codable* restart::decode_object(decoder& from, long stream_version) {
    cm_command::decode_object(from, stream_version);
    from.decode_integer_field(200, restart_type);
    from.decode_integer_field(201, during_install);
    from.decode_integer_field(202, during_remove);
    from.decode_integer_field(203, during_undo);
    from.decode_integer_field(204, during_commit);
    from.decode_long_field(205, timeout);
    from.decode_boolean_field(206, force_restart);
    return this;
}

void restart::import(importer& from) {
    from.get_integer("during_install", &during_install);
    from.get_integer("during_remove", &during_remove);
    from.get_integer("during_undo", &during_undo);
    from.get_integer("during_commit", &during_commit);
    int seconds = static_cast<int>(timeout);
    from.get_integer("timeout", &seconds);
    timeout = seconds;
    from.get_boolean("force_restart", &force_restart);
    cm_command::import(from);
}

void restart::export_(exporter& to) const {
    to.begin_stanza("restart");
    to.put_string("during_install", ustring(from_reboot_option(during_install)));
    to.put_string("during_remove", ustring(from_reboot_option(during_remove)));
    to.put_string("during_undo", ustring(from_reboot_option(during_undo)));
    to.put_string("during_commit", ustring(from_reboot_option(during_commit)));
    if (timeout != -1)
        to.put_integer("timeout", static_cast<int>(timeout));
    if (force_restart)
        to.put_boolean("force_restart", force_restart);
    cm_command::export_(to);
    to.end_stanza();
}

const char* restart::from_reboot_option(int option) {
    return option == after ? "after" : option == immediately ? "immediately" : "none";
}

void restart::can_execute(int, int) { result = success; }
void restart::can_backup(int) { result = success; }
void restart::save_command(zipping_channel*) { result = success; }
int restart::is_to_be_executed() { return cm_command::is_to_be_executed(); }
ustring restart::get_name() { return u"restart"; }
ustring restart::get_log(int) { return get_name(); }

void restart::do_execute(int action, int phase) {
    if (!package) {
        result = failure;
        return;
    }
    if (package->mode & m_device) {
        KM_TRACE(trace_error, "common", "the distribution is for devices");
        result = failure;
        return;
    }
    package->restart_internal = 1;
    const bool untold = phase == p_commit_before_reboot || phase < p_do || phase > p_accept_cleanup;
    result = action == a_reverse && untold ? failure : success;
}

cm_command* restart::get_undo_command(int action) {
    if (action != a_execute && action != a_reverse)
        return nullptr;
    auto* undo = new (std::nothrow) restart(*this);
    if (!undo) {
        result = fatal_failure;
        return nullptr;
    }
    undo->during_install = during_undo;
    return undo;
}

ustring restart::map_result(int action, int phase) {
    if (phase == p_do) {
        if (action == a_execute && during_install == none) {
            KM_TRACE(trace_info, "common", "action = a_execute && execute_option==none");
            return {};
        }
        if (action == a_reverse && during_remove == none) {
            KM_TRACE(trace_info, "common", "action == a_reverse && reverse_option==none");
            return {};
        }
    } else if (is_changing_phase(phase)) {
        if (during_commit == none) {
            KM_TRACE(trace_info, "common", "commit_option==none");
            return {};
        }
    } else {
        KM_TRACE(trace_info, "common", "no value found!");
        return {};
    }
    return result >= success && result <= success_in_a_reboot
               ? ustring(u"pending")
               : cm_command::map_result(action, phase);
}

int restart::prepare_restart_condition() {
    int needed = 0;
    if (!package->connected) {
        KM_TRACE(trace_info, "common", "not connected");
        needed = 1;
    } else if (package->operation_is_in_a_reboot) {
        KM_TRACE(trace_info, "common", "connected and in_a_reboot");
        needed = 1;
    } else if (package->result == success_in_a_reboot) {
        KM_TRACE(trace_info, "common", "connected and success_in_a_reboot");
        needed = 1;
    }
    const auto hook = get_engine_hooks().prepare_restart;
    return hook ? hook(package, needed) : 1;
}

int restart::remove_restart_condition() {
    KM_TRACE(trace_info, "common", "remove_restart_condition");
    const auto hook = get_engine_hooks().unprepare_restart;
    return hook ? hook(package) : 1;
}

int restart::force_shutdown() { return 0; }

void restart::execute_restart() {
    KM_TRACE(trace_info, "common", "%s", restart_type == 1 ? "shutdown_machine" : "restart_os");
    if (const auto hook = get_engine_hooks().request_restart)
        hook(package, restart_type);
}

void restart::remove_restart() {
    KM_TRACE(trace_info, "common", "remove_restart");
    if (const auto hook = get_engine_hooks().cancel_restart)
        hook(package);
}

void restart::test_and_restart(int reserved) {
    KM_TRACE(trace_info, "common", "test_and_restart %d", reserved);
}

void restart::test_and_restart(int reserved, const ustring&, const ustring&) {
    test_and_restart(reserved);
}

int restart::verify_reboot_timeout(int, int, int) { return 1; }

int restart::change_autoexncf(int action) {
    const ustring statement(u"load resinit");
    file start(pathname("sys:system\\AUTOEXEC.NCF"));
    file saved(pathname("sys:system\\AUTOEXEC.$NC"));
    if (action == add_module && !start.copy(saved, 0)) {
        KM_TRACE(trace_error, "common", "error during back-up");
        return 0;
    }
    text_file lines(start.get_path());
    lines.read();
    if (action == add_module) {
        if (lines.line_exists(u"load *resinit*")) {
            KM_TRACE(trace_info, "common",
                     "the load module statement is already present in the autoexec.ncf");
            return 1;
        }
        lines.add_line(statement, text_file::after_last, u"*load*");
    } else {
        KM_TRACE(trace_info, "common", "remove the device statement");
        if (!lines.remove_line(statement))
            KM_TRACE(trace_error, "common",
                     "error removing the load module statement in the autoexec.ncf");
    }
    if (!lines.commit_changes()) {
        KM_TRACE(trace_error, "common", "error saving changes in %s", start.get_path().mbcs_str());
        return 0;
    }
    return 1;
}

extern "C" codable* make_CmRestart() { return new restart; }

} // namespace km
