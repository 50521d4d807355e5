// upgrade: a new version in the place of the older ones
#pragma once

#include "operations.h"

namespace kmhost {

// Caption of the group, at the end of the tree, that holds what an upgrade takes out.
constexpr const char16_t* upgrade_caption = u"taken out by the upgrade";

// The new version goes in with a backup; what only the older versions hold goes in the same run,
// so that one undo brings everything back. Then the older versions leave the catalog. Files that
// users changed are kept beside, with ".kmsave" behind their name.
void upgrade(const operation_request& request, worker_line& line, outcome& result);

} // namespace kmhost
