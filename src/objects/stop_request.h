// stop_request: a wish to stop between two commands
#pragma once

#include "command.h"

namespace km {

class cm_package;

// May be called from a signal handler. From now on a command that would change something asks to be
// run again later instead, so that the operation stops with its state on disk.
void request_stop();
bool stop_requested();
// What a command of `package` that stops for that has as its result in this phase; the operation
// comes back to it when it goes on.
cm_result result_of_stop(cm_package& package, int phase);

// The next command that would change something fails instead, so that its operation is taken back
// by its own rules. One command only: those that take back must not.
void request_failure();
bool take_failure_request();

} // namespace km
