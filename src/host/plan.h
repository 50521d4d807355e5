// plan: what an operation would do, without doing it
#pragma once

#include "holders.h"
#include "outcome.h"
#include "package.h"
#include "words.h"

namespace kmhost {

// Asks every command, as the run of this mode does, whether it could run; where there is to be a
// backup, whether that could be made before it. The package's `result` tells. `action` is a_execute
// or a_reverse; the word is that of the operation.
void check_run(km::cm_package& package, int action, unsigned mode, const char16_t* word);
// What check_run found, with its messages; false: with the error that the operation would fail.
bool would_run(const km::cm_package& package, const std::string& word, const package_id& id,
               outcome& result);

// Checks so, and tells what it would change. Nothing is changed.
void plan_install(km::cm_package& package, const package_id& id, const km::cm_catalog_entry* entry,
                  unsigned mode, outcome& result);
// What others hold is marked in the package (keep_what_others_hold), and stays.
void plan_remove(km::cm_package& package, const package_id& id, const km::cm_catalog_entry& entry,
                 unsigned mode, outcome& result);

// commit, accept, undo and rollback (km::operation).
void plan_later(km::cm_package& package, const package_id& id, const km::cm_catalog_entry& entry,
                int operation, unsigned mode, outcome& result);

} // namespace kmhost
