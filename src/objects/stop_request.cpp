// stop_request: a wish to stop between two commands
// no format
// invariant: a command that has begun ends
#include "stop_request.h"

#include <csignal>

namespace km {

namespace {
volatile std::sig_atomic_t asked = 0;
}

void request_stop() { asked = 1; }
bool stop_requested() { return asked != 0; }

} // namespace km
