// words: states and results as people say them
#pragma once

#include "catalog.h"
#include "outcome.h"

#include <string>

namespace kmhost {

// "NAME^VERSION", or "NAME" with an empty version.
struct package_id {
    std::string name;
    std::string version;
    std::string text() const { return version.empty() ? name : name + "^" + version; }
};

package_id parse_id(const std::string& text);

// The five letters of an entry, "-----" for none.
std::string letters_of(const km::cm_catalog_entry* entry);

// "installed", "removed, but in error: its last operation failed" and so on.
std::string state_words(const km::cm_catalog_entry* entry);

// The same of a package that is known by name: behind a checkpoint of its stream the entry speaks
// of a reboot, and none is waited for.
std::string state_words(const package_id& id, const km::cm_catalog_entry* entry);

// The same in a sentence, with the letters: "it is installed (IC---)", "its removal is prepared
// (RP---)".
std::string it_is(const km::cm_catalog_entry* entry);
std::string it_is(const package_id& id, const km::cm_catalog_entry* entry);

// The operation was cut behind a checkpoint of its stream, and waits for no reboot.
bool is_cut_at_checkpoint(const package_id& id, const km::cm_catalog_entry& entry);

// In error although no operation that put it in place failed: a verify found a difference, or a
// removal stopped half way.
bool found_different(const km::cm_catalog_entry& entry);

// What can be done where what stands is found different; only what is committed can be repaired,
// and a verify that finds nothing clears the error.
std::string advice_on_difference(const package_id& id, const km::cm_catalog_entry& entry);

// What a user can do about a package in this state; empty if nothing is wrong.
std::string advice(const package_id& id, const km::cm_catalog_entry& entry);
// The same, and for what is prepared or can be undone what may follow.
std::string next_steps(const package_id& id, const km::cm_catalog_entry& entry);

// What a package is behind an install, a remove or an undo that succeeded; null: not in the
// catalog.
const char* installed_words(const km::cm_catalog_entry* entry);
const char* removed_words(const km::cm_catalog_entry* entry);
const char* undone_words(const km::cm_catalog_entry* entry);

// The answer of the engine's gate as a refusal with words; see cm_package::validate_cm_status.
void tell_refusal(int gate_answer, const char* operation, const package_id& id,
                  const km::cm_catalog_entry* entry, outcome& result);

package_facts facts_of(const package_id& id, const km::cm_catalog_entry* entry);

// Why a name or a version cannot be that of a package; empty if it can.
std::string fault_of_name(const std::string& name);
std::string fault_of_version(const std::string& version);

} // namespace kmhost
