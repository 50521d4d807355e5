// kept_variables: the default variables of one package, while others are read
// no format
// invariant: the chain itself stays; only its last list changes
#include "kept_variables.h"

#include "variable_list.h"

namespace kmhost {

namespace {
km::variable_list* chain() { return km::variable_list::get_chain(km::variable_list::for_decoder); }
} // namespace

kept_variables::kept_variables() {
    if (auto* all = chain())
        kept_.reset(static_cast<km::variable_list*>(all->get_defaults()->clone()));
}

kept_variables::~kept_variables() {
    if (auto* all = chain(); all && kept_)
        all->change_defaults(kept_.release());
}

} // namespace kmhost
