// chain_names: the lists of a variable chain, by names for people
// no format
// invariant: the first list that knows a name gives its value
#include "chain_names.h"

#include "builtin_variables.h"
#include "dynamic_variables.h"
#include "user_variables.h"

#include <memory>

namespace kmhost {

const char* list_name(const km::variable_list& list) {
    if (dynamic_cast<const km::command_line_variable_list*>(&list))
        return "command line";
    if (dynamic_cast<const km::user_file_variable_list*>(&list))
        return "user file";
    if (dynamic_cast<const km::built_in_variable_list*>(&list))
        return "built-in";
    if (dynamic_cast<const km::dynamic_variable_list*>(&list))
        return "operation";
    if (dynamic_cast<const km::environment_variable_list*>(&list))
        return "environment";
    return list.get_next() ? "inventory" : "package";
}

bool look_up(const km::variable_list* chain, const std::string& name, std::string& value,
             std::string& list) {
    if (!chain)
        return false;
    const km::ustring key(name.c_str());
    const std::unique_ptr<km::ustring> found(const_cast<km::variable_list*>(chain)->get_value(key));
    if (!found)
        return false;
    value = found->mbcs_str();
    list = "environment or operation"; // lists that keep no names of their own
    for (const auto* one = chain; one; one = one->get_next())
        if (one->get(key)) {
            list = list_name(*one);
            break;
        }
    return true;
}

} // namespace kmhost
