// engine_run: the host's side of one run of the engine
// no format
// invariant: the hooks never outlive the worker that set them
#include "engine_run.h"

#include "command.h"
#include "engine_hooks.h"
#include "package_stream.h"
#include "stop_request.h"
#include "target_root.h"

namespace kmhost {

namespace {

worker_line* current_line = nullptr;
catalog_store* current_store = nullptr;

int make_durable() {
    keep_digest_state();
    const int objects = km::flush_touched();
    return objects && (!current_store || current_store->flush());
}

void on_exit(int status, const char* why) {
    if (!current_line)
        return;
    tell_lost_stream();
    current_line->ending(status, km::stop_requested()
                                     ? "it was asked to stop, and 'kmctl resume' finishes it"
                                     : (why ? why : ""));
}

void progress(long done, long total, const km::cm_command* command) {
    if (current_line && current_line->is_due(done, total))
        current_line->progress(
            {done, total, const_cast<km::cm_command*>(command)->get_name().mbcs_str()});
}

} // namespace

void tell_lost_stream() {
    const auto loss = current_loss();
    if (loss && current_line)
        current_line->lost(*loss);
}

void set_hooks(worker_line& line, catalog_store* store) {
    current_line = &line;
    current_store = store;
    km::engine_hooks hooks;
    hooks.make_durable = make_durable;
    hooks.on_exit = on_exit;
    hooks.progress = progress;
    km::set_engine_hooks(hooks);
}

} // namespace kmhost
