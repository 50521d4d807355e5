// trace_option: the trace of this call
// no format
// invariant: a trace that cannot be started does not stop the command
#include "trace_option.h"

#include "trclog.h"

namespace kmctl {

void start_trace(const global_options& options) {
    constexpr unsigned long bytes_of_a_file = 10000000;
    constexpr int style = 1;
    if (options.trace_level >= 0)
        km::trace::set_remote_values(1, options.trace_level, bytes_of_a_file, style, "all");
    km::trace::initialize("kmctl", nullptr);
}

} // namespace kmctl
