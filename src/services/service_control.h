// service_control: private directories of packages
//
// The file "service.ctl" in the working directory lists the directories that operations of packages
// left behind: a line "<name> <version> :: <directory>" each. Lines are made by the objects of the
// host. cm_package::clear_service_directory is told here too.
#pragma once

#include "command.h"

namespace km {

// Removes the directories of a package that is called "name version", and their lines. 0, or 8.
cm_result cleanup_backup(const ustring& name, const ustring& version);

} // namespace km
