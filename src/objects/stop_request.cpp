// stop_request: a wish to stop between two commands
// no format
// invariant: a command that has begun ends
#include "stop_request.h"

#include "package.h"

#include <csignal>
#include <utility>

namespace km {

namespace {
volatile std::sig_atomic_t asked = 0;
bool must_fail = false;
} // namespace

void request_stop() { asked = 1; }
bool stop_requested() { return asked != 0; }

// A commit that goes on passes over what is not executed. It reads no stream, and nothing of this
// run comes behind.
cm_result result_of_stop(cm_package& package, int phase) {
    if (phase == p_commit || phase == p_commit_after_reboot)
        package.not_compressed_installation = 1; // keeps what is retried executed
    return cm_command::success_retry;
}

void request_failure() { must_fail = true; }
bool take_failure_request() { return std::exchange(must_fail, false); }

} // namespace km
