// dynamic_variables: values of the running operation and of removable media
#pragma once

#include "variable_list.h"

namespace km {

class cm_package;

// Names that begin with "operation_" are answered from the running package. A name "cdrom_" with a
// drive index (one or two digits, below 27) is a mounted medium: the names take the media in the
// order in which they are first asked for, whatever the number, and keep them.
class dynamic_variable_list : public variable_list {
  public:
    // Answers a name from the package: new, or null for a name that it does not know.
    using package_values = ustring* (*)(cm_package& package, const ustring& name);

    ustring* get_value(const ustring& name) override;
    // Empty for names that get their value when an operation runs.
    ustring* check_defined(const ustring& name) override;

    // The package of every dynamic list from now on, lent; null for none. Told in the package's
    // band.
    static void set_package(cm_package* package);
    // The same for whoever brings the values: settings know no package.
    static void set_package(cm_package* package, package_values values);
    static cm_package* get_package();

    // An instance that stands in no chain; lent, until terminate().
    static dynamic_variable_list* get_list();
    // Also forgets the media that names were given; the package stays.
    static void terminate();
    // Whether the text behind the prefix is a drive index.
    static int check_drive_index(const ustring& text);

  private:
    // The next mount point that no name has yet, stored under the name; null if none is left.
    static ustring* get_cdrom(const ustring& name);
    static ustring* medium_of(const ustring& name);
    static dynamic_variable_list* singleton;
    static variable_list* media;
};

} // namespace km
