// upgrade_record: what an upgrade took out, so that its undo brings it back
//
// Below the working directory, one directory per upgraded package: the catalog entries, profiles
// and backup packages of the older versions, their reference counts, and the files of users that
// were kept beside. It stands from before the first change until the new version is accepted,
// undone or removed.
#pragma once

#include "catalog_store.h"
#include "words.h"

#include <string>
#include <vector>

namespace kmhost {

struct upgrade_record {
    package_id id;                 // the new version
    std::vector<package_id> old;   // what it replaces
    std::vector<std::string> kept; // paths, below the target root, of files that were kept beside
};

// Writes the record, with links to the files of the old versions. False: `result` says why.
bool write_upgrade(const upgrade_record& record, const catalog_store& store, outcome& result);
bool has_upgrade(const package_id& id, upgrade_record& record);
void forget_upgrade(const package_id& id);

// Takes the older versions out of the catalog; the new one stands. Their files stay in the record.
// May be repeated. False: `result` says why.
bool drop_old_versions(const upgrade_record& record, catalog_store& store, outcome& result);

// Puts the older versions back, entry for entry, and forgets the record; for a new version that is
// gone. Nothing to do without a record. May be repeated.
void restore_after_undo(catalog_store& store, const package_id& id, outcome& result);

// Finishes restorations that a kill cut.
void heal_upgrades(catalog_store& store, outcome& result);

} // namespace kmhost
