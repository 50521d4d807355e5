// tree_files: the files that a tree of commands adds
#pragma once

#include <functional>

namespace km {

class cm_composite_command;
class km_file;

// In the order of the tree, whatever their conditions say.
void each_file(const cm_composite_command& tree, const std::function<void(const km_file&)>& act);

} // namespace km
