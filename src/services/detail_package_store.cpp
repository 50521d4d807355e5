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

void remove_profile(const pathname& path) {
    if (path.get_text().empty())
        return;
    KM_KILL_POINT("store.before_old_profile");
    file(path).remove(0);
}

} // namespace km
