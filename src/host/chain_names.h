// chain_names: the lists of a variable chain, by names for people
#pragma once

#include "variable_list.h"

#include <string>

namespace kmhost {

const char* list_name(const km::variable_list& list);

// Value of a name and the list that gives it. False: no list knows it.
bool look_up(const km::variable_list* chain, const std::string& name, std::string& value,
             std::string& list);

} // namespace kmhost
