// report_delivery: brings the reports that wait to their channels
//
// One process at a time delivers; it holds a lock of its own, and none that others wait for. A
// report that a channel did not take stays for the next time, with what it has reached.
#pragma once

#include "location.h"
#include "outcome.h"
#include "worker.h"

namespace kmhost {

// Delivers all reports that wait; in a worker. Fails with exit 1 if any is left, and names a reason
// for each channel.
void deliver_reports(long wait_seconds, worker_line& line, outcome& result);

// What a command does at its end: delivers in a process of its own for at most as many seconds as
// the setting report_timeout tells, and not at all if another process delivers. All that can come
// of it is a warning of the result. The caller must have one thread only.
void deliver_at_the_end(const location& where, outcome& result);

} // namespace kmhost
