// continue_run: an install that stopped half way goes on
#pragma once

#include "package_file.h"
#include "session.h"

namespace kmhost {

// Whether the entry tells of such a run: its profile knows what was done.
bool goes_on_from_profile(const package_id& id, const km::cm_catalog_entry* entry, unsigned mode);

// Runs it from the profile, with the data of the package file from where it stood; a stream from
// its server takes the place of the one in `opened`. False: the outcome says why it cannot be run;
// else `answer` is the engine's result.
bool continue_run(session& at, opened_package& opened, const std::string& file,
                  km::cm_result& answer);

// Full name of a path; an address is one already.
std::string absolute_path(const std::string& path);

} // namespace kmhost
