// variable_builder: the chains of variable lists that the process goes through
// no format
// invariants: a list stands in one chain at most; the last list of the decoder's is the package's
#include "variable_builder.h"

#include "base_configuration.h"
#include "builtin_variables.h"
#include "dynamic_variables.h"
#include "installed_variables.h"
#include "trclog.h"

#include <initializer_list>

namespace km {

variable_list* variable_list_builder::decoder_chain = nullptr;
variable_list* variable_list_builder::importer_chain = nullptr;
variable_list* variable_list_builder::autopack_chain = nullptr;
variable_list* variable_list_builder::dependency_chain = nullptr;

namespace {

// Puts each list behind the one before it and answers the first; a null at the end is left out.
variable_list* chained(std::initializer_list<variable_list*> lists) {
    variable_list* before = nullptr;
    for (variable_list* list : lists) {
        if (before && list)
            before->change_defaults(list);
        before = list;
    }
    return *lists.begin();
}

} // namespace

pathname variable_list_builder::get_hwfile() {
    return pathname(base_configuration().get_inventory_scan_file());
}

variable_list* variable_list_builder::merge_variables(variable_list* defaults,
                                                      const variable_list& line) {
    variable_list* merged = defaults ? defaults : new variable_list;
    for (Keyslist keys(line); keys.hasMoreElements();) {
        const HashtableEntry* entry = keys.next_entry();
        const auto* name = dynamic_cast<const ustring*>(entry->get_key());
        const auto* value = dynamic_cast<const ustring*>(entry->get_value());
        if (name && value)
            merged->set_value(*name, *value);
    }
    return merged;
}

variable_list* variable_list_builder::get_decoder_variables(const _sequence_string* sequence,
                                                            variable_list* defaults) {
    KM_TRACE_FUNCTION("variable_list_builder::get_decoder_variables");
    if (decoder_chain) {
        // The package may hand in the list that already stands at the end.
        variable_list* merged = merge_variables(defaults, *decoder_chain);
        if (merged != decoder_chain->get_defaults())
            decoder_chain->change_defaults(merged);
        return decoder_chain;
    }
    auto* line = new command_line_variable_list(sequence);
    variable_list* package = merge_variables(defaults, *line);
    decoder_chain = chained({line, new user_file_variable_list, new built_in_variable_list,
                             new dynamic_variable_list, new environment_variable_list,
                             new user_file_variable_list(get_hwfile()), package});
    variable_list::set_chain(variable_list::for_decoder, decoder_chain);
    return decoder_chain;
}

variable_list* variable_list_builder::get_importer_variables(variable_list* defaults) {
    KM_TRACE_FUNCTION("variable_list_builder::get_importer_variables");
    if (importer_chain && !defaults)
        return importer_chain;
    if (importer_chain && importer_chain->get_defaults() == defaults)
        return importer_chain;
    delete importer_chain;
    importer_chain = chained({new built_in_variable_list, new dynamic_variable_list,
                              new installed_sw_endpoint_variable_list, defaults});
    variable_list::set_chain(variable_list::for_importer, importer_chain);
    return importer_chain;
}

variable_list* variable_list_builder::get_autopack_variables(variable_list* defaults) {
    KM_TRACE_FUNCTION("variable_list_builder::get_autopack_variables");
    if (autopack_chain) {
        if (defaults != autopack_chain->get_defaults())
            delete defaults;
        return autopack_chain;
    }
    autopack_chain = chained({new built_in_variable_list, defaults});
    variable_list::set_chain(variable_list::for_autopack, autopack_chain);
    return autopack_chain;
}

void variable_list_builder::free_variables() {
    KM_TRACE_FUNCTION("variable_list_builder::free_variables");
    for (variable_list** chain :
         {&decoder_chain, &importer_chain, &autopack_chain, &dependency_chain}) {
        delete *chain;
        *chain = nullptr;
    }
    built_in_variable_list::terminate();
    dynamic_variable_list::terminate();
    user_file_variable_list::terminate();
    environment_variable_list::terminate();
    command_line_variable_list::terminate();
    installed_sw_endpoint_variable_list::terminate();
}

} // namespace km
