// detail_package_store: store, then act: the one order on disk
//
// What a package's operation leaves behind reaches the disk in one order: the new profile (written,
// flushed, renamed), the files of the objects (hook make_durable), the reference counts, the
// catalog entry, its flush; only then goes the old profile, and only then is a restart asked for.
// So there is no moment in which the entry names a file that is not there.
#pragma once

#include "catalog.h"

namespace km {

class cm_package;

// Stores the entry under the package's key, behind all that it speaks of. 1, or 0 with a trace: the
// catalog holds what it held, unless it was the last flush that failed.
int store_entry(cm_package& package, const cm_catalog_entry& entry);

// The same with the working entry, whose time of installation becomes now.
int store_entry_now(cm_package& package);

// Forgets what the catalog knows of a run of that backup package: it was begun on an older state of
// the package, and believed later it would make an undo run from the wrong place.
void forget_run_of_backup(cm_package& package, const pathname& backup);

// Stores the working entry, which promises no backup any more, and removes the backup that
// `promising`, the entry before it, names: in this order, so that no kill leaves a promise without
// its file. Only where the file cannot go does `promising` come back, in error. 1, or 0 with a
// trace: the entry cannot be stored.
int store_without_backup(cm_package& package, const cm_catalog_entry& promising);

// Removes a profile that no entry names any more; an empty path is none.
void remove_profile(const pathname& path);

} // namespace km
