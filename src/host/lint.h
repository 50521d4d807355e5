// lint: what is wrong or doubtful in a text definition
#pragma once

#include "outcome.h"

#include <string>

namespace kmhost {

// Tells every fault of a definition, as errors, and where it has none what is doubtful: as errors
// dependencies that are no conditions, as warnings variables that nothing defines, and objects and
// programs that no command takes back. Exit code 0, or 100 (exit_differences) with any of them; 2
// no such file, 1 not to be read, or nothing there to read it with.
void lint(const std::string& path, outcome& result);

} // namespace kmhost
