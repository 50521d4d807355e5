// resume: what was cut goes on, or back
#pragma once

#include "intent.h"
#include "operations.h"

namespace kmhost {

enum class resume_kind {
    forward,
    back, // an upgrade or an undoable install is taken back instead
    boot  // as the machine starts: what cannot go on yet is no message
};

// Takes back what was cut, where it was begun with a backup; else it is refused.
void go_back(const intent& cut, const operation_request& request, worker_line& line,
             outcome& result);

// Finishes what waited for a reboot that has come, in the order of the boot list, then the cut
// operation of the package, or of all packages with an empty target.
void resume(const operation_request& request, resume_kind how, worker_line& line, outcome& result);

} // namespace kmhost
