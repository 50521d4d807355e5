// user_scope: packages of one user, in the home directory, without rights
#pragma once

#include "outcome.h"

#include <string>

namespace km {
class cm_package;
} // namespace km

namespace kmhost {

// The state of a user's packages: "kmcore" in XDG_STATE_HOME, or in ~/.local/state. "" if there is
// no home directory.
std::string user_state_directory();

// From now on this process works on a user's packages: their mask is the user's.
void enter_user_scope();
bool in_user_scope();

// Of a package that is about to be installed: all its commands are a user's, and what they put in
// place is below the home directory; their containers become the user's, too. True outside the
// scope of a user. False: the outcome says why.
bool fits_user_scope(km::cm_package& package, outcome& result);

} // namespace kmhost
