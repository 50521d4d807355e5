// build_package: a package object from a package file
#pragma once

#include "command.h"

namespace km {

// Rewrites a package without data (an SP file) as one with the data of its commands, which are
// loaded from the machine. Messages go to standard error, since no operation is there to report
// them. What fails leaves no target.
cm_result build_from_sp_file(pathname source, pathname target);

} // namespace km
