// package_reference: removal of what the stores know of a package
// no format
// invariants: an entry goes before the files that it names, so that no entry names a missing file;
// what could not be removed is put back
#include "base/msg_supp.h"
#include "base_configuration.h"
#include "engine_hooks.h"
#include "file.h"
#include "kill_point.h"
#include "package.h"
#include "pair.h"
#include "status_words.h"
#include "trclog.h"

#include <memory>

namespace km {

struct cm_package::removal {
    cm_catalog_key undo_key;
    std::unique_ptr<cm_catalog_entry> undo_entry; // as the catalog held it
    std::unique_ptr<cm_catalog_entry> own_entry;  // likewise
};

namespace {
std::unique_ptr<cm_catalog_entry> stored_copy(Persistent_Hashtable* catalog,
                                              const cm_catalog_key& key) {
    const auto* stored = catalog ? catalog->get_as<cm_catalog_entry>(key) : nullptr;
    return stored ? std::make_unique<cm_catalog_entry>(*stored) : nullptr;
}

bool remove_file(const pathname& path) { return !path.is_valid() || file(path).remove(0); }

// The entries must be gone for good before the files that they name go.
bool catalog_is_durable() {
    const auto hook = get_engine_hooks().make_durable;
    return !hook || hook();
}
} // namespace

cm_result cm_package::delete_package_reference(int delete_package, int delete_undo) {
    KM_TRACE_FUNCTION("cm_package::delete_package_reference");
    removal at;
    if (!take_entries(at, delete_package, delete_undo) ||
        !remove_files(at, delete_package, delete_undo))
        return fatal_failure;
    if (delete_package)
        clear_service_directory();
    if (delete_package && delete_undo && catalog_entry)
        catalog_entry->cm_status = catalog_entry->current_cm_status = cs_initial;
    return success;
}

bool cm_package::take_entries(removal& at, int delete_package, int delete_undo) {
    if (delete_undo)
        KM_TRACE(trace_info, "common", "delete undo_package");
    if (delete_undo && catalog_entry && catalog_entry->undo_package_name.is_valid()) {
        at.undo_key = cm_catalog_key(catalog_entry->undo_package_name.get_text(), u"1.0.0");
        at.undo_entry = stored_copy(catalog, at.undo_key);
        if (at.undo_entry) {
            KM_TRACE(trace_info, "common", "Undo package exists in catalog");
            if (!catalog->remove(&at.undo_key)) {
                KM_TRACE(trace_error, "common", "Error: removing the undo package catalog entry");
                internal_error = ie_entry_not_removed;
                return false;
            }
        }
    }
    KM_KILL_POINT("reference.before_own_entry");
    if (delete_package && catalog) {
        KM_TRACE(trace_info, "common", "delete package");
        at.own_entry = stored_copy(catalog, catalog_key);
        if (!catalog->remove(&catalog_key)) {
            KM_TRACE(trace_error, "common", "Error: removing the package catalog entry");
            internal_error = ie_entry_not_removed;
            put_back(at, false);
            return false;
        }
    }
    if (!catalog_is_durable()) {
        internal_error = ie_entry_not_removed;
        put_back(at, true);
        return false;
    }
    KM_KILL_POINT("reference.after_entries");
    return true;
}

bool cm_package::remove_files(removal& at, int delete_package, int delete_undo) {
    if (at.undo_entry && !remove_file(at.undo_entry->profile_name)) {
        KM_TRACE(trace_error, "common", "Error: backup profile package failed to be removed");
        put_back(at, true);
        return false;
    }
    if (delete_undo && !undo_preloaded && catalog_entry &&
        !remove_file(catalog_entry->undo_package_name)) {
        KM_TRACE(trace_error, "common", "Error: undo package failed to be removed");
        put_back(at, true);
        return false;
    }
    KM_KILL_POINT("reference.before_profile");
    if (delete_package && catalog_entry && !remove_file(catalog_entry->profile_name)) {
        KM_TRACE(trace_error, "common", "package profile failed to be removed");
        catalog_entry->current_cm_status = cs_error;
        if (at.own_entry)
            *at.own_entry = *catalog_entry;
        put_back(at, true);
        return false;
    }
    return true;
}

bool cm_package::put_back(removal& at, bool own_entry) {
    bool good = true;
    if (at.undo_entry && !catalog->update(at.undo_key.clone(), at.undo_entry->clone())) {
        KM_TRACE(trace_error, "common", "Error putting again the undo package catalog entry");
        good = false;
    }
    if (own_entry && at.own_entry && !catalog->update(catalog_key.clone(), at.own_entry->clone())) {
        KM_TRACE(trace_error, "common", "Error putting again the package catalog entry");
        good = false;
    }
    if (!good)
        internal_error = ie_catalog_update;
    return good;
}

namespace {
ustring stripped(ustring text) { return text.strip(); }

// Every package of the catalog but this one.
void list_others(const Persistent_Hashtable& catalog, const cm_package& stays, vector& others) {
    KM_TRACE(trace_info, "common", "Scanning Catalog and building list of entries to delete");
    const ustring own_name = stripped(stays.name);
    const ustring own_version = stripped(stays.version);
    Keyslist entries(catalog);
    while (HashtableEntry* one = entries.next_entry()) {
        const auto* key = dynamic_cast<const cm_catalog_key*>(one->get_key());
        if (!key)
            continue;
        const ustring name = stripped(key->name), version = stripped(key->version);
        if (name == own_name && version == own_version)
            KM_TRACE(trace_info, "common",
                     "**NOT** Adding to List to delete -- the object that will stay->%s^%s",
                     name.mbcs_str(), version.mbcs_str());
        else
            others.push_back(new pair(key->name, key->version));
    }
}
} // namespace

int cm_package::reset_history() {
    KM_TRACE_FUNCTION("cm_package::reset_history");
    if (!catalog) {
        KM_TRACE(trace_error, "common", "cm_catalog is not set ... error!!!!");
        return 1;
    }
    vector others;
    list_others(*catalog, *this, others);
    for (int i = 0; i < others.size(); ++i) {
        const auto* id = others.at<pair>(i);
        cm_package gone;
        gone.name = id->get_key();
        gone.version = id->get_value();
        gone.catalog = catalog;
        gone.catalog_key = cm_catalog_key(gone.name, gone.version);
        if (!gone.find_catalog_entry(0)) {
            KM_TRACE(trace_error, "common", "package entry does not exist in the catalog");
            return 0;
        }
        if (gone.delete_package_reference(1, 1) != success) {
            KM_TRACE(trace_error, "common",
                     "Error Deleting Entry from Catalog: name %s -- version %s",
                     gone.name.mbcs_str(), gone.version.mbcs_str());
            return 0;
        }
    }
    if (connected && !others.empty()) {
        pathname sign(base_configuration().get_var(u"working_dir"));
        sign += ustring(u"reset");
        KM_TRACE(trace_info, "common", "history reset file=%s", sign.mbcs_str());
        file_output_channel made(sign, 0);
        if (!made.get_error())
            KM_TRACE(trace_info, "common", "history reset file created!");
    }
    return 1;
}

} // namespace km
