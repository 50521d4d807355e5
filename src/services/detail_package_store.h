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

// Removes a profile that no entry names any more; an empty path is none.
void remove_profile(const pathname& path);

} // namespace km
