// upgrade: a new version in the place of the older ones
#pragma once

#include "operations.h"

namespace kmhost {

// The new version goes in with a backup; what only the older versions hold goes in the same run,
// so that one undo brings everything back. Then the older versions leave the catalog. Files that
// users changed are kept beside, with ".kmsave" behind their name.
void upgrade(const operation_request& request, worker_line& line, outcome& result);

} // namespace kmhost
