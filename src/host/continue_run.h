// continue_run: an install that stopped half way goes on
#pragma once

#include "session.h"

namespace kmhost {

// Whether the entry tells of such a run: its profile knows what was done.
bool goes_on_from_profile(const km::cm_catalog_entry* entry, unsigned mode);

// Runs it from the profile, with the data of the package file from where it stood. False: the
// outcome says why it cannot be run; else `answer` is the engine's result.
bool continue_run(session& at, const std::string& file, km::cm_result& answer);

// Full name of a path.
std::string absolute_path(const std::string& path);

} // namespace kmhost
