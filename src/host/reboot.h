// reboot: packages that wait until the machine was booted again
//
// A note for each ("reboot/NAME^VERSION" in the working directory) holds the id of the boot under
// which the operation stopped. The clock is not asked: another id is another boot.
#pragma once

#include "catalog.h"
#include "words.h"

namespace kmhost {

// The id of this boot, from the kernel, or from the file that KMCTL_BOOT_ID_FILE names; "" if it
// cannot be read.
std::string boot_id();

// The package waits for the next boot, and stands in the boot list. A later call for a package that
// waits changes nothing but the boot. False, with errno: the note cannot be written, and nobody
// will know when the machine was booted.
bool wait_for_reboot(const package_id& id);
// It waits no more.
void forget_reboot(const package_id& id);
// It waits, whatever boot this is.
bool is_noted_for_reboot(const package_id& id);
// The machine was booted since. False for a package without a note.
bool was_booted_since(const package_id& id);

// The operation stopped for a reboot.
bool waits_for_reboot(const km::cm_catalog_entry& entry);
// The command that goes on with it ("install", "remove", "commit", "accept", "undo").
const char* command_behind_reboot(const km::cm_catalog_entry& entry);

} // namespace kmhost
