// engine_exit: the one way in which the library ends a process
// no format
// invariant: the watcher hears of every end before it happens
#include "engine_exit.h"

#include <cstdlib>

namespace km {

namespace {
exit_watcher watching = nullptr;
}

void set_exit_watcher(exit_watcher watcher) { watching = watcher; }

void engine_exit(int status, const char* why) {
    if (watching)
        watching(status, why);
    std::exit(status);
}

} // namespace km
