// installed_catalog: the installed software of a catalog, and the chain behind dependencies
// no format
// invariant: the catalog is only read
#include "installed_variables.h"

#include "catalog.h"
#include "persistent_hashtable.h"
#include "trclog.h"
#include "variable_builder.h"

namespace km {

namespace {

constexpr std::uint32_t outcome_bits = 0xFF;
constexpr std::uint32_t installed_bits = 0x4000000 | 0x20000; // "I" and "C"
constexpr std::uint32_t undoable_bit = 0x400;
constexpr std::uint32_t substate_bits = 0xFF00;

bool is_installed(const cm_catalog_entry& entry) {
    const auto word = static_cast<std::uint32_t>(entry.get_dbstatus());
    return (word & outcome_bits) == 0 && (word & installed_bits) == installed_bits &&
           ((word & undoable_bit) != 0 || (word & substate_bits) == 0) && !entry.is_hidden();
}

} // namespace

void installed_sw_endpoint_variable_list::build(Persistent_Hashtable& table,
                                                const ustring& excluded, int) {
    KM_TRACE_FUNCTION("installed_sw_endpoint_variable_list::build");
    ustring value(u"#installed_software#");
    for (Keyslist keys(table); keys.hasMoreElements();) {
        const HashtableEntry* stored = keys.next_entry();
        const auto* key = dynamic_cast<const cm_catalog_key*>(stored->get_key());
        const auto* entry = dynamic_cast<const cm_catalog_entry*>(stored->get_value());
        if (!key || !entry || !is_installed(*entry))
            continue;
        const ustring text = key->get_text();
        if (!is_str_present(excluded, text))
            value += text + ustring(u";");
    }
    set_value(u"installed_software", value);
}

variable_list* variable_list_builder::get_dependency_variables(Persistent_Hashtable& table,
                                                               const ustring& key, int flag,
                                                               variable_list* defaults) {
    KM_TRACE_FUNCTION("variable_list_builder::get_dependency_variables");
    if (dependency_chain && !flag) {
        if (defaults != dependency_chain->get_defaults())
            delete defaults;
        return dependency_chain;
    }
    delete dependency_chain;
    auto* installed = new installed_sw_endpoint_variable_list;
    installed->build(table, key, flag);
    auto* scanned = new user_file_variable_list(get_hwfile());
    installed->change_defaults(scanned);
    if (defaults)
        scanned->change_defaults(defaults);
    dependency_chain = installed;
    return dependency_chain;
}

} // namespace km
