// location: where the state lies and below which root objects stand
#pragma once

#include "outcome.h"

#include <string>

namespace kmhost {

struct location {
    std::string state;      // directory of all that the engine keeps; empty: the default
    std::string root;       // put in front of every path of objects; empty: the machine itself
    bool read_only = false; // the state need not be writable
    bool is_user = false;   // the packages of a user: another default state
};

// Makes this process work there: settings, working directories and catalog below the state, objects
// below the root. Without a state they lie below ROOT/var/lib/kmcore, or without a root in the
// library's own places (for the super-user with the product directory /var/lib/kmcore). The state
// is made if it is missing. False: `result` says why.
bool enter_location(const location& where, outcome& result);

// The directory that the state lies in; "" for the library's own places.
std::string state_directory(const location& where);

// A setting, with "" for one that is not set.
std::string setting(const char* name);

// The file that lists the libraries with factories lies beside this program, below ../share/kmcore;
// translated messages too, in nls/LANGUAGE.
std::string data_directory();

// A state of its own in a temporary directory, for work that keeps nothing; gone at the end.
class temporary_state {
  public:
    temporary_state();
    ~temporary_state();
    temporary_state(const temporary_state&) = delete;
    temporary_state& operator=(const temporary_state&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

} // namespace kmhost
