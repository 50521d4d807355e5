// plan: what an operation would do, without doing it
#pragma once

#include "holders.h"
#include "outcome.h"
#include "package.h"
#include "words.h"

namespace kmhost {

// Asks every command, as the run of this mode does, whether it could run; where there is to be a
// backup, whether that could be made before it. The package's `result` tells.
void check_install(km::cm_package& package, unsigned mode);

// Checks so, and tells what it would change. Nothing is changed.
void plan_install(km::cm_package& package, const package_id& id, const km::cm_catalog_entry* entry,
                  unsigned mode, outcome& result);
// Paths in `held` belong to other packages, too, and stay.
void plan_remove(km::cm_package& package, const package_id& id, const km::cm_catalog_entry& entry,
                 const path_hashes& held, unsigned mode, outcome& result);

// commit, accept, undo and rollback (km::operation).
void plan_later(km::cm_package& package, const package_id& id, const km::cm_catalog_entry& entry,
                int operation, outcome& result);

} // namespace kmhost
