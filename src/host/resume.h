// resume: what was cut goes on, or back
#pragma once

#include "operations.h"

namespace kmhost {

// Finishes the cut operation of the package, or of all packages with an empty target. With `back`
// an upgrade or an undoable install is taken back instead.
void resume(const operation_request& request, bool back, worker_line& line, outcome& result);

} // namespace kmhost
