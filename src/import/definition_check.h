// definition_check: the blocks of a definition held against the rules
#pragma once

#include "definition_tree.h"
#include "rule_book.h"

namespace km {

// Adds every fault of the package and all that stands in it. `messages` is not touched.
void check_definition(const definition_file& file, rule_book& book, definition_problems& problems);

// Adds a fault where the value is no condition; none is one.
void check_condition(const definition_attribute& one, definition_problems& problems);

// The whole number of a text: digits with a sign; false if there is none or an int cannot hold it.
bool whole_number(const std::string& text, int& number);
// y, yes, true, 1 and n, no, false, 0.
bool truth_value(const std::string& text, int& value);

} // namespace km
