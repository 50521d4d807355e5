// installed_variables: one variable that lists the software on this endpoint
#pragma once

#include "variable_list.h"

namespace km {

class Persistent_Hashtable;

// "installed_software": "#installed_software#", then "name^version;" of every visible package of
// the catalog that stands installed.
class installed_sw_endpoint_variable_list : public variable_list {
  public:
    // Empty: for checks away from the endpoint, where only the name counts.
    installed_sw_endpoint_variable_list() = default;

    // The name itself is always defined (empty); any other is asked of the next list.
    ustring* check_defined(const ustring& name) override;

    // Fills the list from the catalog, without the entries that `excluded` names (a list of
    // "name^version" separated by ';'). Told beside the catalog.
    void build(Persistent_Hashtable& table, const ustring& excluded, int flag);
    // Whether the item stands in the list separated by ';', by its first occurrence: there it must
    // start the list or follow a ';'.
    static int is_str_present(const ustring& list, const ustring& item);

    // An empty instance that stands in no chain; lent, until terminate().
    static installed_sw_endpoint_variable_list* get_list();
    static void terminate();

  private:
    static installed_sw_endpoint_variable_list* singleton;
};

} // namespace km
