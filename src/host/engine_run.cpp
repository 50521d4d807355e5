// engine_run: the host's side of one run of the engine
// no format
// invariant: the hooks never outlive the worker that set them
#include "engine_run.h"

#include "command.h"
#include "early_flush.h"
#include "engine_hooks.h"
#include "package_stream.h"
#include "reboot.h"
#include "stop_request.h"
#include "target_root.h"

namespace kmhost {

namespace {

worker_line* current_line = nullptr;
catalog_store* current_store = nullptr;
const package_id* current_id = nullptr;

int make_durable() {
    keep_digest_state();
    const bool with_objects = current_store && current_store->is_on_touched();
    return km::flush_touched() && (!current_store || with_objects || current_store->flush());
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

bool knows_package() { return current_id && !current_id->name.empty(); }

// The entry tells of a reboot from now on: the note must stand before anything else can happen. One
// that cannot be written is told when the operation has ended.
int prepare_restart(km::cm_package* package, int) {
    if (knows_package())
        (void)wait_for_reboot(*current_id, wish_of(*package));
    return 1;
}

// Behind the boot the note stays until the operation has come to its end, which may be killed.
int unprepare_restart(km::cm_package*) {
    if (knows_package() && !was_booted_since(*current_id))
        forget_reboot(*current_id);
    return 1;
}

void request_restart(km::cm_package* package, int) {
    if (!knows_package())
        return;
    reboot_wish wish = wish_of(*package);
    wish.wanted = true;
    (void)wait_for_reboot(*current_id, wish);
}

void cancel_restart(km::cm_package* package) { (void)unprepare_restart(package); }

} // namespace

void tell_lost_stream() {
    const auto loss = current_loss();
    if (loss && current_line)
        current_line->lost(*loss);
}

void set_hooks(worker_line& line, catalog_store* store, const package_id* id) {
    current_line = &line;
    current_store = store;
    current_id = id;
    km::engine_hooks hooks;
    hooks.expect_durable = km::flush_soon;
    hooks.make_durable = make_durable;
    hooks.on_exit = on_exit;
    hooks.progress = progress;
    hooks.prepare_restart = prepare_restart;
    hooks.unprepare_restart = unprepare_restart;
    hooks.request_restart = request_restart;
    hooks.cancel_restart = cancel_restart;
    km::set_engine_hooks(hooks);
}

} // namespace kmhost
