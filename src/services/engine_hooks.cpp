// engine_hooks: what a host may hook into the engine
// no format
// invariant: an unset hook is never called
#include "engine_hooks.h"

#include "engine_exit.h"

namespace km {

namespace {
engine_hooks current;
}

void set_engine_hooks(const engine_hooks& hooks) {
    current = hooks;
    set_exit_watcher(hooks.on_exit);
}

const engine_hooks& get_engine_hooks() { return current; }

} // namespace km
