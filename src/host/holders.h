// holders: which packages hold a path
//
// Beside each profile stands a list of the paths of its package, as 64-bit hashes: what one package
// takes away must not be another's. The lists can be made again from the profiles at any time.
#pragma once

#include "catalog_store.h"
#include "package.h"
#include "words.h"

#include <cstdint>
#include <string>
#include <unordered_set>

namespace kmhost {

using path_hashes = std::unordered_set<std::uint64_t>;

std::uint64_t hash_of_path(const std::string& path);

// Paths of all installed packages but `but` (all its versions where it has none); lists that are
// missing or damaged are made again.
path_hashes held_by_others(const catalog_store& store, const package_id& but);

// Writes the list of a package. A failure only means that it is made again later.
void write_holders(const package_id& id, km::cm_package& tree);
void forget_holders(const package_id& id);
// Of a package that left the catalog: a list that a power cut brings back is forgotten by the sweep
// before the next change.
void drop_holders(const package_id& id);

// Before a removal of the package runs, or is verified: what another package holds, too, stays
// where it is in this run. Returns how many paths these are.
long keep_what_others_hold(const catalog_store& store, const package_id& id, km::cm_package& tree);
void keep_and_tell_what_others_hold(const catalog_store& store, const package_id& id,
                                    km::cm_package& tree, outcome& result);

} // namespace kmhost
