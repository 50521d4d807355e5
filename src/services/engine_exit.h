// engine_exit: the one way in which the library ends a process
#pragma once

namespace km {

using exit_watcher = void (*)(int status, const char* why);

// Called before every end of the process; null takes it away. The watcher must return.
void set_exit_watcher(exit_watcher watcher);

// Ends the process as told where it is called: tells the watcher, then exits with `status`.
[[noreturn]] void engine_exit(int status, const char* why);

} // namespace km
