// lookup: packages of a catalog by name and pattern
// no format
// invariant: the order does not depend on the table's
#include "lookup.h"

#include "package_version.h"

#include <algorithm>
#include <fnmatch.h>

namespace kmhost {

namespace {

bool comes_before(const listed_package& a, const listed_package& b) {
    if (a.id.name != b.id.name)
        return a.id.name < b.id.name;
    const int order = km::compare_versions_znp(km::ustring(a.id.version.c_str()),
                                               km::ustring(b.id.version.c_str()));
    return order ? order < 0 : a.id.version < b.id.version;
}

bool matches(const package_id& id, const std::string& pattern) {
    return pattern.empty() || ::fnmatch(pattern.c_str(), id.name.c_str(), 0) == 0 ||
           ::fnmatch(pattern.c_str(), id.text().c_str(), 0) == 0;
}

} // namespace

std::vector<listed_package> find_packages(const km::Persistent_Hashtable& catalog,
                                          const std::string& pattern) {
    std::vector<listed_package> all;
    km::Keyslist entries(catalog);
    while (km::HashtableEntry* one = entries.next_entry()) {
        const auto* key = dynamic_cast<const km::cm_catalog_key*>(one->get_key());
        const auto* entry = dynamic_cast<const km::cm_catalog_entry*>(one->get_value());
        if (!key || !entry || entry->backup_package)
            continue;
        package_id id{key->name.mbcs_str(), key->version.mbcs_str()};
        if (matches(id, pattern))
            all.push_back({id, entry});
    }
    std::sort(all.begin(), all.end(), comes_before);
    return all;
}

bool find_package(const km::Persistent_Hashtable& catalog, const std::string& text, package_id& id,
                  outcome& result) {
    id = parse_id(text);
    std::vector<listed_package> found;
    for (const auto& one : find_packages(catalog, ""))
        if (one.id.name == id.name && (id.version.empty() || one.id.version == id.version))
            found.push_back(one);
    if (found.size() == 1) {
        id = found[0].id;
        return true;
    }
    if (found.empty()) {
        result.fail(exit_not_found, "not_found",
                    text + " is not installed. 'kmctl list' shows what is.");
        return false;
    }
    std::string versions;
    for (const auto& one : found)
        versions += " " + one.id.text();
    result.fail(exit_usage, "ambiguous",
                text + " is installed in several versions; name one of:" + versions + ".");
    return false;
}

} // namespace kmhost
