// dependency: what a package demands of the installed software
//
// A dependency is a condition (expression.h), usually over $(installed_software). One thread at a
// time may check.
#pragma once

#include "pathname.h"

namespace km {

class Persistent_Hashtable;
class variable_list;

// Values of `style`.
enum dependency_style : int {
    dependency_ignored = 0,    // valid whenever a package is given
    dependency_as_is = 1,      // must hold as things are
    dependency_on_removal = 2, // what holds with the package must hold without it
    dependency_on_install = 3  // what holds without the package must hold with it
};

// Whether the dependency allows the operation: 1 or 0.
//
// `package` is the "name^version" under operation, `extra` a text of "name^version;" that counts as
// installed. With style 1 or without a package the dependency must hold as things are. Otherwise it
// is evaluated without the package (with `extra`) and with it (without `extra`), and only a
// difference can refuse: a dependency that is false either way is not this operation's fault.
//
// A refusal sets `message` (the error of the condition, then the comparisons that were made) and
// `unresolved` (1 if a variable was undefined in this or an earlier check of the process); else
// both stay. `variables` (lent) becomes the list that expressions ask, until the next one is made;
// its own value "installed_software" is as before on return, but ends in `extra` where the package
// plays no part. Null: no variable is known.
int is_valid_dependency(variable_list* variables, const ustring& dependency, const ustring& package,
                        const ustring& extra, const int style, int& unresolved, ustring& message);

// The style that an operation on a package with this status word asks for. The first argument is
// not used. Operations 0 and 16: 3; 6, 10 and 1000 by the status; others: 0.
int get_check_dependency_style(const long, long operation, long status);

// Replaces the path by the profile's file name of the catalog's entry for the package that is named
// as the path, version "1.0.0". 1; 0 and the path stays if there is no entry or it has no file.
int get_backup_filename(Persistent_Hashtable* catalog, pathname& path);

} // namespace km
