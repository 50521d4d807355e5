// variable_builder: the chains of variable lists that the process goes through
#pragma once

#include "user_variables.h"

namespace km {

class Persistent_Hashtable;

// One chain per purpose, made at the first question and kept until free_variables(). Every chain
// has lists of its own. Chains are lent; `defaults` is taken over in every case, null is none.
class variable_list_builder {
  public:
    variable_list_builder() = delete;

    // Command line, user file, built-in, dynamic, environment, inventory scan file, package. The
    // first call makes the chain; later ones keep it (and its command line) and put the new
    // package's list in the place of the last. The command line's variables are copied into the
    // package's list.
    static variable_list* get_decoder_variables(const _sequence_string* sequence,
                                                variable_list* defaults);
    // Built-in, dynamic, installed software, package. Made anew where `defaults` is given.
    static variable_list* get_importer_variables(variable_list* defaults);
    // Built-in, package. A later call only deletes the `defaults` that it is given.
    static variable_list* get_autopack_variables(variable_list* defaults);
    // Installed software of the catalog, inventory scan file, package. Made anew where `flag` is
    // not 0. `key` names what is left out of the installed software. Told beside the catalog.
    static variable_list* get_dependency_variables(Persistent_Hashtable& table, const ustring& key,
                                                   int flag, variable_list* defaults);
    // Deletes all chains and all lists that stand in none.
    static void free_variables();

    // The inventory scan file of the settings.
    static pathname get_hwfile();
    // The package's list, which is made if there is none, with the names of the command line in it.
    static variable_list* merge_variables(variable_list* defaults, const variable_list& line);

  private:
    static variable_list* decoder_chain;
    static variable_list* importer_chain;
    static variable_list* autopack_chain;
    static variable_list* dependency_chain;
};

} // namespace km
