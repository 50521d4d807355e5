// lookup: packages of a catalog by name and pattern
#pragma once

#include "catalog.h"
#include "outcome.h"
#include "persistent_hashtable.h"
#include "words.h"

#include <vector>

namespace kmhost {

struct listed_package {
    package_id id;
    const km::cm_catalog_entry* entry;
};

// The packages whose name or name^version matches the pattern (all with an empty one), by name and
// version; the entries are lent. Backup packages are not packages of their own here.
std::vector<listed_package> find_packages(const km::Persistent_Hashtable& catalog,
                                          const std::string& pattern);

// The one package that NAME[^VERSION] means. False: `result` says that there is none (exit 3), or
// that several versions are there (exit 2).
bool find_package(const km::Persistent_Hashtable& catalog, const std::string& text, package_id& id,
                  outcome& result);

} // namespace kmhost
