// variable_file: faults of the files of variables that people write
#pragma once

#include "outcome.h"

namespace kmhost {

// Whether the files that the settings name can be read by the variables' reader as they were meant:
// characters of the code page, no control characters, a '=' in every line that says something,
// lines of at most 1 MiB, files of at most 64 MiB, and no circle of references. False: `result`
// fails as invalid, with each fault's file, line, column and the line itself, at most twenty. A
// file that is not there is none.
bool check_variable_files(outcome& result);

} // namespace kmhost
