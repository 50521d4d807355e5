// reboot: packages that wait until the machine was booted again
//
// A note for each ("reboot/NAME^VERSION" in the working directory) holds the id of the boot under
// which the operation stopped, whether it asks for a reboot, and how many boots it has asked for.
// The clock is not asked: another id is another boot.
#pragma once

#include "catalog.h"
#include "package.h"
#include "words.h"

#include <vector>

namespace kmhost {

// The id of this boot, from the kernel, or from the file that KMCTL_BOOT_ID_FILE names; "" if it
// cannot be read.
std::string boot_id();

struct reboot_wish {
    bool wanted = false; // the operation asks for the reboot; else it just waits for the next one
    long timeout = -1;   // seconds that the package allows until then, -1 without a limit
    int force = 0;       // nobody's session holds it up
};

// Time and force of the restart commands of a package: the shortest time, and force if one has it.
reboot_wish wish_of(km::cm_package& package);

// The package waits for the next boot, and stands in the boot list, behind those that stand there.
// A later call for a package that waits for the same boot keeps its place and its time; a wish that
// was told stays. False, with errno: the note cannot be written, and nobody will know when the
// machine was booted.
bool wait_for_reboot(const package_id& id, const reboot_wish& wish);
// It waits no more.
void forget_reboot(const package_id& id);
// It waits, whatever boot this is.
bool is_noted_for_reboot(const package_id& id);
// The machine was booted since. False for a package without a note.
bool was_booted_since(const package_id& id);
// The package asks for a reboot, and the machine was not booted since.
bool wants_reboot(const package_id& id);
// How many boots in a row its operation has asked for.
long boots_asked_for(const package_id& id);

// The packages of the boot list, in its order.
std::vector<package_id> boot_list();

// The operation stopped for a reboot.
bool waits_for_reboot(const km::cm_catalog_entry& entry);
// The command that goes on with it ("install", "remove", "commit", "accept", "undo").
const char* command_behind_reboot(const km::cm_catalog_entry& entry);

} // namespace kmhost
