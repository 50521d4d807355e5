// sharing_control: counting of objects that packages share
// no format
// invariant: an object that stood on the machine before any package outlives them all
#include "object_command.h"
#include "package.h"
#include "refcounttable.h"
#include "trclog.h"

namespace km {

namespace {
// Counts for whoever put the object there before any package did.
constexpr const char16_t* dummy_package = u"@@_dummy_package_for_autoshare_@@";
constexpr const char16_t* dummy_version = u"1.0";
constexpr long shared_only = 2;
constexpr long every_object = 4;
} // namespace

void cm_add_object::do_sharing_control(int, int) {}

bool cm_add_object::is_auto_shared() const {
    return package->sharing_control == every_object ||
           (package->sharing_control == shared_only && object->is_shared);
}

void cm_add_object::mark_shared() {
    object->is_shared = 1;
    if (object->get_ref_count() < 1)
        object->set_ref_count(1);
}

void cm_add_object::do_default_sharing_control(int action, int phase) {
    KM_TRACE_FUNCTION("cm_add_object::do_default_sharing_control");
    auto* table = counts();
    if (!table || !object)
        return;
    if (action == a_reverse && (object->sharing_control_count || !is_auto_shared()))
        return;
    const ustring name = object->get_name();
    if (action == a_execute) {
        // Asked for the place itself: in p_prepare an object may answer for its staged form.
        if (phase == p_prepare && !object->exists(p_do)) {
            KM_TRACE(trace_info, "common", "object doesn't exist, exiting...");
            return;
        }
        if (phase < p_do || phase > p_commit || !is_auto_shared())
            return;
        KM_TRACE(trace_info, "common", "object '%s' is already present on target", name.mbcs_str());
        if (phase != p_prepare && table->get_ref_count(name) < 1)
            table->set_counter(name, dummy_package, dummy_version, 1);
        if (phase != p_commit) {
            mark_shared();
            object->sharing_control_count = object->get_ref_count();
        }
    } else if (action == a_reverse) {
        KM_TRACE(trace_info, "common",
                 "(reverse) autoshare is true but this package didn't act during install");
        if (table->get_ref_count(name, dummy_package, dummy_version) <= 0)
            return;
        KM_TRACE(trace_info, "common", "(reverse) try to delete dummy package entry in rct.tme");
        table->reset_counter(name, dummy_package, dummy_version);
        mark_shared();
        ustring own_name, own_version;
        set_package_name_and_version(*package, own_name, own_version);
        table->set_counter(name, own_name, own_version, object->get_ref_count());
    }
}

} // namespace km
