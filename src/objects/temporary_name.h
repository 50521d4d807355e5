// temporary_name: the name beside its place under which something is made
#pragma once

#include <string>

namespace km {

class cm_package;

// The same in every run, so that a second run overwrites what a kill left, and never piles up;
// apart for the commands of a package, told by `index`. A last component, without a path.
std::string temporary_name_of(const std::string& path, int index, const cm_package* package);

} // namespace km
