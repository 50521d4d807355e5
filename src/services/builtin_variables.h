// builtin_variables: values of this machine and of the product
#pragma once

#include "variable_list.h"

namespace km {

// Filled at construction; a value that the system does not give is left out, with a warning trace.
class built_in_variable_list : public variable_list {
  public:
    built_in_variable_list();

    // As variable_list::check_defined, but names that this or another platform always has are
    // defined: their value here, or empty.
    ustring* check_defined(const ustring& name) override;

    // An instance that stands in no chain; lent, until terminate().
    static built_in_variable_list* get_list();
    static void terminate();
    // The resolved value through get_list(), or empty.
    static ustring get_var(const ustring& name);

  private:
    void build();
    void build_system();
    static built_in_variable_list* singleton;
};

} // namespace km
