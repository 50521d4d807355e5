// tree_files: the files that a tree of commands adds
#pragma once

#include <functional>

namespace km {

class cm_composite_command;
class km_file;

// In the order of the tree, whatever their conditions say. `other` is called for each command
// between them that adds neither a plain file nor a directory.
void each_file(const cm_composite_command& tree, const std::function<void(const km_file&)>& act,
               const std::function<void()>& other = nullptr);

} // namespace km
