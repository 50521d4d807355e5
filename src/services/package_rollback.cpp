// package_rollback: taking a prepared change back
// no format
// invariant: a rollback never touches what stands in place, only what was prepared beside it
#include "base/msg_supp.h"
#include "dependency.h"
#include "detail_package_execute.h"
#include "detail_package_store.h"
#include "dynamic_variables.h"
#include "sp_object.h"
#include "status_words.h"
#include "trclog.h"

#include <memory>

namespace km {

namespace {
// A commit or an undo was cut, and the tree stands between two states: what takes away the prepared
// copies or the backup would leave it there for good.
bool is_between(int operation, const cm_catalog_entry& entry) {
    const int begun = entry.operation_in_progress;
    return (operation == o_rollback || operation == o_accept) &&
           (begun == o_commit || begun == o_undo || begun == o_undo_ep);
}

bool is_prepared(std::int32_t status) {
    return status == cs_prepared || status == cs_prepared_undo_prepared ||
           status == cs_prepared_undoable;
}
} // namespace

// Tells the catalog, before the first object is touched, that this operation is on its way. 0 where
// it cannot be told.
int cm_package::note_begun() {
    const auto* stored = catalog ? catalog->get_as<cm_catalog_entry>(catalog_key) : nullptr;
    if (!stored || (!external_call && !(is_prepared(stored->cm_status) && has_no_reboot_flags())))
        return 1;
    const auto& entry = *catalog_entry;
    cm_catalog_entry begun(*stored);
    begun.operation_requested = entry.operation_requested;
    begun.operation_in_progress = entry.operation_in_progress;
    begun.call_mode = entry.call_mode;
    begun.call_argument = entry.call_argument;
    return store_entry(*this, begun);
}

// The operation was refused: nothing was touched.
void cm_package::note_not_begun() {
    const auto* stored =
        external_call && catalog ? catalog->get_as<cm_catalog_entry>(catalog_key) : nullptr;
    if (!stored)
        return;
    cm_catalog_entry entry(*stored);
    entry.operation_in_progress = o_none;
    if (!store_entry(*this, entry))
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
}

// What a prepared package keeps beside the tree goes before its profile does, which alone knows
// of it.
void cm_package::drop_prepared_copies() {
    const auto* stored = catalog ? catalog->get_as<cm_catalog_entry>(catalog_key) : nullptr;
    if (!stored)
        return;
    pathname profile = stored->profile_name;
    if (stored->cm_status == cs_committed_undo_prepared) {
        profile = stored->undo_package_name;
        if (!get_backup_filename(catalog, profile))
            return;
    } else if (stored->last_action != a_execute || !is_prepared(stored->cm_status)) {
        return;
    }
    cm_package* read = nullptr;
    sp_object reader(messages);
    reader.decode(read, profile, 1, sp_object::either);
    dynamic_variable_list::set_package(this);
    const std::unique_ptr<cm_package> old(read);
    if (!old)
        return;
    delete old->log_object_list;
    old->log_object_list = nullptr;
    old->set_error_message(messages);
    old->executed = 1;
    old->operation_phase = u"rollback";
    old->do_execute(a_reverse, p_prepare);
    old->operation_phase = u"rollback_cleanup";
    old->do_execute(a_reverse, p_prepare_cleanup);
}

// What commit, accept, undo and rollback begin with when a caller asks for them: the entry as the
// catalog holds it, and the marks of the operation. False: not in the catalog.
bool cm_package::begin_external(int operation, int mode_word, int call_argument,
                                std::int32_t& started) {
    result = success;
    if (!find_catalog_entry(0)) {
        KM_TRACE(trace_error, "common", "package entry does not exist in the catalog");
        internal_error = ie_not_in_catalog;
        return false;
    }
    auto& entry = *catalog_entry;
    if (is_between(operation, entry)) {
        KM_TRACE(trace_error, "common", "Error: a cut operation must go on first");
        internal_error = ie_action_and_state;
        return false;
    }
    started = entry.status_at_start;
    entry.call_mode = mode_word;
    entry.call_argument = call_argument;
    entry.status_at_start = entry.cm_status | entry.current_cm_status;
    entry.operation_requested = entry.operation_in_progress = operation;
    entry.entry_operation_result = entry.current_result = 0;
    entry.current_cm_status = entry.cm_status;
    return true;
}

// The same in a chain: the entry in memory is the truth, and the gate looks at it.
bool cm_package::begin_internal(int operation, int mode_word, int call_argument) {
    if (!catalog_entry)
        return false;
    catalog_entry->call_mode = mode_word;
    catalog_entry->call_argument = call_argument;
    int status = 0;
    if (validate_cm_status(operation, a_execute, mode_word, 0, &status) == 0)
        return true;
    KM_TRACE(trace_error, "common", "Error: failure validating the cm status");
    return false;
}

cm_result cm_package::rollback(int mode_word, int call_argument) {
    KM_TRACE_FUNCTION("cm_package::rollback");
    catalog_key = cm_catalog_key(name, version);
    executed = 1;
    operation_name = u"undo";
    operation_phase = u"rollback";
    set_operation_option(mode_word);
    std::int32_t started = 0;
    const bool begun = external_call ? begin_external(o_rollback, mode_word, call_argument, started)
                                     : begin_internal(o_rollback, mode_word, call_argument);
    if (!begun)
        return failure;
    auto& entry = *catalog_entry;
    const auto remembered = result;
    // A remove that was only prepared has touched nothing yet.
    const bool has_work = entry.last_action == a_execute;
    result = success;
    if (has_work) {
        can_execute(a_reverse, p_prepare);
        operation_result = u"success";
        if (result != success && result != warning) {
            KM_TRACE(trace_error, "common", "Error: can_execute on rollback");
            return failure;
        }
        KM_TRACE(trace_info, "common", "perform a rollback as reverse and p_prepare");
        do_execute(a_reverse, p_prepare);
    }
    KM_TRACE(trace_info, "common", "rollback returned a result = %d", static_cast<int>(result));
    auto outcome = result;
    result = remembered;
    const int next = next_status(o_rollback, entry.current_cm_status);
    const bool good = outcome == success || outcome == warning;
    if (!(good ? store_rolled_back(next) : store_failed()))
        return fatal_failure;
    const auto kept = result;
    result = success;
    if (has_work) {
        operation_phase = u"rollback_cleanup";
        do_execute(a_reverse, p_prepare_cleanup);
    }
    KM_TRACE(trace_info, "common", "cleanup returned a result = %d", static_cast<int>(result));
    if (result != success && outcome == success)
        outcome = warning;
    result = kept;
    return outcome;
}

// The reference of a package that came back to its beginning goes; an inverted remove leaves the
// install as it was.
bool cm_package::store_rolled_back(int next) {
    auto& entry = *catalog_entry;
    if (!external_call) {
        entry.current_cm_status = next;
        entry.current_result = 0;
        return true;
    }
    const bool inverted = entry.inverse_action && entry.last_action == a_reverse;
    if (!inverted) {
        if (delete_package_reference(1, 1) == success)
            return true;
        entry.current_cm_status = cs_error;
    } else {
        const cm_catalog_entry promising(entry);
        reset_to_committed(entry);
        if (store_without_backup(*this, promising))
            return true;
    }
    if (!store_entry_now(*this))
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
    return true;
}

// An operation that failed: in a chain the entry is stored by its end.
bool cm_package::store_failed() {
    auto& entry = *catalog_entry;
    entry.current_result = 0;
    if (!external_call) {
        entry.cm_status = entry.current_cm_status;
        entry.current_cm_status = cs_error;
        return true;
    }
    entry.current_cm_status = cs_error;
    entry.operation_in_progress = o_none;
    entry.entry_operation_result = result;
    if (store_entry_now(*this))
        return true;
    KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
    internal_error = ie_catalog_update;
    return false;
}

} // namespace km
