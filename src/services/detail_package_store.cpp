// detail_package_store: store, then act: the one order on disk
// no format
// invariant: the entry is stored behind everything that it speaks of, and nowhere else
#include "detail_package_store.h"

#include "base/msg_supp.h"
#include "engine_hooks.h"
#include "file.h"
#include "kill_point.h"
#include "package.h"
#include "refcounttable.h"
#include "status_words.h"
#include "trclog.h"

namespace km {

namespace {
int make_durable() {
    const auto hook = get_engine_hooks().make_durable;
    return hook ? hook() : 1;
}

int refuse(const char* what) {
    KM_TRACE(trace_error, "common", "%s", what);
    return 0;
}
} // namespace

int store_entry(cm_package& package, const cm_catalog_entry& entry) {
    KM_TRACE_FUNCTION("store_entry");
    if (!package.catalog)
        return refuse("the package has no catalog");
    KM_KILL_POINT("store.before_flush");
    if (!make_durable())
        return refuse("the files of the package cannot be made durable");
    KM_KILL_POINT("store.before_counts");
    if (package.reference_table && !package.reference_table->commit())
        return refuse("the reference counts cannot be stored");
    KM_KILL_POINT("store.before_entry");
    if (!package.catalog->update(new cm_catalog_key(package.catalog_key), entry.clone()))
        return refuse("the catalog entry cannot be stored");
    KM_KILL_POINT("store.after_entry");
    if (!make_durable())
        return refuse("the catalog cannot be made durable");
    return 1;
}

int store_entry_now(cm_package& package) {
    package.catalog_entry->update_installed_filepack_time();
    return store_entry(package, *package.catalog_entry);
}

void forget_run_of_backup(cm_package& package, const pathname& backup) {
    if (!package.catalog || !backup.is_valid())
        return;
    const cm_catalog_key key(backup.get_text(), u"1.0.0");
    const auto* stale = package.catalog->get_as<cm_catalog_entry>(key);
    if (!stale)
        return;
    const pathname profile = stale->profile_name;
    if (package.catalog->remove(&key))
        remove_profile(profile);
}

int store_without_backup(cm_package& package, const cm_catalog_entry& promising) {
    auto& entry = *package.catalog_entry;
    const pathname& backup = promising.undo_package_name;
    if (entry.undo_package_name == backup) {
        entry.undo_package_name = pathname();
        entry.backup_availability = 0;
    }
    forget_run_of_backup(package, backup); // once it is promised no more, nobody finds it
    if (!store_entry_now(package))
        return 0;
    KM_KILL_POINT("store.before_backup");
    const pathname kept = entry.undo_package_name;
    entry.undo_package_name = backup;
    if (package.delete_package_reference(0, 1) == cm_command::success) {
        entry.undo_package_name = kept;
        return 1;
    }
    entry = promising;
    entry.current_cm_status = cs_error;
    if (!store_entry_now(package))
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
    return 1;
}

void remove_profile(const pathname& path) {
    if (path.get_text().empty())
        return;
    KM_KILL_POINT("store.before_old_profile");
    file(path).remove(0);
}

} // namespace km
