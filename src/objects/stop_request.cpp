// stop_request: a wish to stop between two commands
// no format
// invariant: a command that has begun ends
#include "stop_request.h"

#include <csignal>
#include <utility>

namespace km {

namespace {
volatile std::sig_atomic_t asked = 0;
bool must_fail = false;
} // namespace

void request_stop() { asked = 1; }
bool stop_requested() { return asked != 0; }

void request_failure() { must_fail = true; }
bool take_failure_request() { return std::exchange(must_fail, false); }

} // namespace km
