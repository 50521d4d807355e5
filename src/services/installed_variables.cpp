// installed_variables: one variable that lists the software on this endpoint
// no format
// invariant: nothing here reads the catalog
#include "installed_variables.h"

namespace km {

installed_sw_endpoint_variable_list* installed_sw_endpoint_variable_list::singleton = nullptr;

ustring* installed_sw_endpoint_variable_list::check_defined(const ustring& name) {
    if (name == ustring(u"installed_software"))
        return new ustring;
    return get_next() ? get_next()->check_defined(name) : nullptr;
}

int installed_sw_endpoint_variable_list::is_str_present(const ustring& list, const ustring& item) {
    if (item.empty())
        return 0;
    const auto at = list.find(item);
    return at != ustring::npos && (at == 0 || list[at - 1] == u';');
}

installed_sw_endpoint_variable_list* installed_sw_endpoint_variable_list::get_list() {
    if (!singleton)
        singleton = new installed_sw_endpoint_variable_list;
    return singleton;
}

void installed_sw_endpoint_variable_list::terminate() {
    delete singleton;
    singleton = nullptr;
}

} // namespace km
