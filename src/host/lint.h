// lint: what is wrong or doubtful in a text definition
#pragma once

#include "outcome.h"

#include <string>

namespace kmhost {

// Tells every fault of a definition, as errors, and where it has none what is doubtful: as errors
// dependencies that are no conditions, as warnings variables that nothing defines, objects and
// programs that no command takes back, sources that are not there, and what else lint knows. Exit
// code 0, or 100 (exit_differences) with any of them; 2 no such file, 1 not to be read, or nothing
// there to read it with. Sources are looked for as a build with that `base` would (empty: beside
// the definition).
void lint(const std::string& path, const std::string& base, outcome& result);

} // namespace kmhost
