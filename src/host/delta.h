// delta: a package that holds only what differs from another one
#pragma once

#include "outcome.h"

#include <string>

namespace kmhost {

// Writes the package `newer` without the data of files that `base` holds alike. It installs where
// the files of `base` stand, and is refused anywhere else.
void make_delta(const std::string& base, const std::string& newer, const std::string& output,
                outcome& result);

} // namespace kmhost
