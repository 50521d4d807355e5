// definition_references: references of the values of a definition to variables
#pragma once

#include "definition_tree.h"

#include <string>
#include <vector>

namespace km {

// Names of the references in a text that hold no reference themselves.
std::vector<std::string> references_in(const std::string& text);

// Adds a fault for each variable of the block whose value refers to itself, or to one that does.
void check_circles(const definition_block& defaults, definition_problems& problems);

} // namespace km
