// restart_command: a restart that has effect
// format: docs/formats/package-file.md
// invariant: what was asked for once is not asked for again by the pass behind the restart
#include "restart_command.h"

#include "exporter.h"
#include "package.h"

namespace km {

const char* km_restart::codable_name() const { return "com.ombrel.sd.cmObjects.KmRestart"; }

// The base has no place for the scope inside its stanza.
void km_restart::export_(exporter& to) const {
    const struct {
        const char* name;
        std::int32_t value;
    } options[] = {{"during_install", during_install},
                   {"during_remove", during_remove},
                   {"during_undo", during_undo},
                   {"during_commit", during_commit}};
    to.begin_stanza("restart");
    for (const auto& one : options)
        to.put_string(one.name, ustring(from_reboot_option(one.value)));
    if (timeout != -1)
        to.put_integer("timeout", static_cast<int>(timeout));
    if (force_restart)
        to.put_boolean("force_restart", force_restart);
    cm_command::export_(to);
    if (scope == 2)
        to.put_boolean("is_per_user", 1);
    to.end_stanza();
}

int km_restart::option(int action, int phase) const {
    const bool commits = phase == p_commit || phase == p_commit_after_reboot;
    if (!commits && phase != p_do)
        return none;
    if (commits)
        return during_commit;
    return action == a_execute ? during_install : action == a_reverse ? during_remove : none;
}

void km_restart::do_execute(int action, int phase) {
    // The base says that the command restarts by itself; here the engine asks the host.
    const auto before = package ? package->restart_internal : 0;
    restart::do_execute(action, phase);
    if (package)
        package->restart_internal = before;
    execute_in_commit = phase == p_commit || phase == p_commit_after_reboot;
    if (result != success || (action != a_execute && action != a_reverse))
        return;
    switch (option(action, phase)) {
    case after:
        result = success_reboot_after;
        break;
    case immediately:
        result = success_reboot_now;
        break;
    default:
        break;
    }
}

cm_command* km_restart::get_undo_command(int action) {
    result = success;
    if (during_undo == none || (action != a_execute && action != a_reverse))
        return nullptr;
    auto* undo = new km_restart(*this);
    undo->reset_command_status();
    undo->execute_in_commit = 0;
    undo->during_install = undo->during_commit = during_undo;
    return undo;
}

extern "C" codable* make_KmRestart() { return new km_restart; }

} // namespace km
