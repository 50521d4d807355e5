// check: faults of a state, and their mending
// no format
// invariant: without repair or rebuild nothing is changed
#include "base/msg_supp.h"
#include "catalog_store.h"
#include "command.h"
#include "intent.h"
#include "location.h"
#include "lookup.h"
#include "object_command.h"
#include "package_file.h"
#include "queries.h"
#include "session.h"
#include "status_words.h"
#include "tree_walk.h"

#include <ctime>
#include <filesystem>
#include <map>
#include <set>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

using counts = std::map<std::string, int>; // shared object: references of one package

// What a package's profile says it counts for.
bool counts_of_profile(const km::cm_catalog_entry& entry, counts& all, outcome& result) {
    km::spmessage messages;
    const auto profile = open_profile(entry.profile_name.mbcs_str(), messages, result);
    if (!profile)
        return false;
    each_leaf(*profile, [&all](km::cm_command& command) {
        auto* add = dynamic_cast<km::cm_add_object*>(&command);
        if (add && add->object && add->object->is_shared && add->is_effective &&
            add->object->get_ref_count() > 0)
            all[add->object->get_name().mbcs_str()] = add->object->get_ref_count();
    });
    return true;
}

counts counts_of_table(km::cm_ref_count_table& table, const package_id& id) {
    counts all;
    if (!table.get_table())
        return all;
    km::Keyslist objects(*table.get_table());
    while (km::HashtableEntry* one = objects.next_entry()) {
        const auto* object = dynamic_cast<const km::ustring*>(one->get_key());
        const auto* counter = dynamic_cast<const km::counter*>(one->get_value());
        const int count = counter ? counter->get_counter(km::ustring(id.name.c_str()),
                                                         km::ustring(id.version.c_str()))
                                  : 0;
        if (object && count)
            all[object->mbcs_str()] = count;
    }
    return all;
}

// A package whose state is not settled may count for less than its profile says.
bool is_settled(const km::cm_catalog_entry& entry) { return stands_installed(entry); }

void check_counts(catalog_store& store, const listed_package& one, outcome& result) {
    counts told;
    if (!is_settled(*one.entry) || !store.counts() ||
        !counts_of_profile(*one.entry, told, result) ||
        told == counts_of_table(*store.counts(), one.id))
        return;
    result.fail(exit_failed, "counts",
                one.id.text() + ": the reference counts are not those of its profile. 'kmctl check "
                                "--rebuild-references' sets them right.");
}

void check_files(const listed_package& one, outcome& result) {
    const std::string profile = one.entry->profile_name.mbcs_str();
    std::error_code error;
    if (profile.empty() || !fs::exists(profile, error))
        result.fail(exit_failed, "profile",
                    one.id.text() + ": its profile " + profile +
                        " is missing. 'kmctl install --force FILE' makes a new one.");
    const std::string backup = one.entry->undo_package_name.mbcs_str();
    if (one.entry->backup_availability && !fs::exists(backup, error))
        result.fail(exit_failed, "backup",
                    one.id.text() + ": its backup " + backup +
                        " is missing, and an undo is not possible. 'kmctl accept " + one.id.text() +
                        "' makes the package final.");
    const std::string next = advice(one.id, *one.entry);
    if (!next.empty())
        result.warn("state", one.id.text() + ": " + it_is(one.id, one.entry) + ". " + next);
}

std::set<std::string> named_files(const km::Persistent_Hashtable& catalog) {
    std::set<std::string> named;
    km::Keyslist entries(catalog);
    while (km::HashtableEntry* one = entries.next_entry())
        if (const auto* entry = dynamic_cast<const km::cm_catalog_entry*>(one->get_value())) {
            named.insert(entry->profile_name.mbcs_str());
            named.insert(entry->undo_package_name.mbcs_str());
        }
    return named;
}

std::vector<std::string> orphans(const km::Persistent_Hashtable& catalog, const char* setting_name,
                                 const char* prefix) {
    const auto named = named_files(catalog);
    std::vector<std::string> all;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(setting(setting_name), error)) {
        const std::string name = one.path().filename().string();
        if (name.compare(0, 2, prefix) == 0 && one.is_regular_file(error) &&
            !named.count(one.path().string()))
            all.push_back(one.path().string());
    }
    return all;
}

void check_orphans(const km::Persistent_Hashtable& catalog, outcome& result) {
    auto left = orphans(catalog, "working_dir", "PP");
    const auto backups = orphans(catalog, "backup_dir", "UP");
    left.insert(left.end(), backups.begin(), backups.end());
    if (!left.empty())
        result.fail(exit_failed, "orphans",
                    std::to_string(left.size()) + " files belong to no package (the first: " +
                        left[0] + "). The next command that changes something removes them.");
}

void check_intents(outcome& result) {
    for (const auto& cut : read_intents())
        result.warn("cut", cut_words(cut));
}

void rebuild_references(catalog_store& store, outcome& result) {
    long changed = 0;
    for (const auto& one : find_packages(store.catalog(), "")) {
        counts told;
        if (!is_settled(*one.entry) || !counts_of_profile(*one.entry, told, result))
            continue;
        const counts held = counts_of_table(*store.counts(), one.id);
        const km::ustring name(one.id.name.c_str()), version(one.id.version.c_str());
        for (const auto& [object, count] : held)
            if (!told.count(object)) {
                store.counts()->reset_counter(km::ustring(object.c_str()), name, version);
                ++changed;
            }
        for (const auto& [object, count] : told)
            if (const auto at = held.find(object); at == held.end() || at->second != count) {
                store.counts()->set_counter(km::ustring(object.c_str()), name, version, count);
                ++changed;
            }
    }
    if (!store.counts()->commit()) {
        result.fail(exit_failed, "counts", "The reference counts cannot be written.");
        return;
    }
    result.info("counts", std::to_string(changed) + " reference counts were set right.");
}

// Packages whose entry was lost come back from their profiles, in error: what stands of them is not
// known, and both a forced remove and a forced install go on from there.
void adopt_profiles(km::Persistent_Hashtable& catalog, outcome& result) {
    for (const auto& path : orphans(catalog, "working_dir", "PP")) {
        km::spmessage messages;
        outcome ignored;
        const auto profile = open_profile(path, messages, ignored);
        if (!profile || profile->is_backup_package ||
            catalog.get(km::cm_catalog_key(profile->name, profile->version)))
            continue;
        auto* entry = new km::cm_catalog_entry;
        entry->cm_status = km::cs_committed;
        entry->current_cm_status = km::cs_error;
        entry->last_action = km::a_execute;
        entry->operation_in_progress = km::o_none;
        entry->profile_name = km::pathname(path.c_str());
        const std::string id =
            std::string(profile->name.mbcs_str()) + "^" + profile->version.mbcs_str();
        if (catalog.update(new km::cm_catalog_key(profile->name, profile->version), entry))
            result.warn("adopted", id +
                                       " came back from its profile, in error. 'kmctl install "
                                       "--force FILE' or 'kmctl remove --force " +
                                       id + "' settles it.");
    }
}

bool repair_state(long wait_seconds, outcome& result) {
    if (!catalog_store::repair(wait_seconds, result))
        return false;
    const std::string file = setting("product_dir") + "/catalog/packages.pht";
    km::Persistent_Hashtable catalog(km::pathname(file.c_str()), 1, 0, nullptr);
    if (!catalog.get_table_error())
        adopt_profiles(catalog, result);
    return true;
}

} // namespace

void check(bool repair, bool rebuild, long wait_seconds, outcome& result) {
    if (repair && !repair_state(wait_seconds, result))
        return;
    catalog_store store;
    const bool changes = repair || rebuild;
    if (!store.open(changes ? access_kind::change : access_kind::read, wait_seconds, result))
        return;
    if (changes)
        rebuild_references(store, result);
    const auto all = find_packages(store.catalog(), "");
    for (const auto& one : all) {
        check_files(one, result);
        check_counts(store, one, result);
    }
    if (const std::string by = changes ? "" : catalog_store::holder(); !by.empty()) {
        result.info("busy", "The catalog is in use by " + by +
                                ": what is being changed now is not looked at.");
    } else {
        check_orphans(store.catalog(), result);
        check_intents(result);
    }
    result.data["packages"] = all.size();
    if (!result.failed())
        result.text = std::to_string(all.size()) + " packages; the catalog, their files and the "
                                                   "reference counts are whole";
}

} // namespace kmhost
