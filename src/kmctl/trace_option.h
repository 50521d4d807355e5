// trace_option: the trace of this call
#pragma once

#include "options.h"

namespace kmctl {

// Starts the trace as the settings say, or at the level of --trace.
void start_trace(const global_options& options);

} // namespace kmctl
