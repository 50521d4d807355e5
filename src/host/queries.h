// queries: what a state and a package file hold
#pragma once

#include "outcome.h"

#include <string>
#include <vector>

namespace kmhost {

enum class show_part { summary, tree, files, variables };

// A package file, or NAME[^VERSION] of the catalog.
void show(const std::string& target, show_part part, outcome& result);
void list(const std::string& pattern, outcome& result);
void status(const std::string& target, outcome& result);
void log(const std::string& target, outcome& result);
void variables(outcome& result);

// Settings of the file that is in force.
void config_list(outcome& result);
void config_get(const std::string& key, outcome& result);
void config_set(const std::string& key, const std::string& value, outcome& result);

// Looks for faults of the state: entries, profiles, backups, orphaned files, reference counts,
// operations that were cut. `repair` writes a damaged catalog anew, and brings packages back whose
// entry was lost; `rebuild` sets the reference counts as the profiles say.
void check(bool repair, bool rebuild, long wait_seconds, outcome& result);

} // namespace kmhost
