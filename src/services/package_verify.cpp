// package_verify: whether what the catalog says is true on the machine
// no format
// invariant: no object is changed
#include "base/msg_supp.h"
#include "command_filter.h"
#include "detail_package_store.h"
#include "package.h"
#include "status_words.h"
#include "trclog.h"

namespace km {

cm_result cm_package::verify(cm_package*& comparison, int mode_word, int call_argument) {
    KM_TRACE_FUNCTION("cm_package::verify");
    operation_name = u"verify";
    operation_phase = u"commit";
    catalog_key = cm_catalog_key(name, version);
    mode = mode_word;
    executed = 1;
    result = success;
    if (!find_catalog_entry(0)) {
        KM_TRACE(trace_error, "common", "package entry does not exist in the catalog");
        internal_error = ie_not_in_catalog;
        return failure;
    }
    auto& entry = *catalog_entry;
    entry.call_mode = mode_word;
    entry.call_argument = call_argument;
    const int action = entry.last_action == a_execute ? a_verify_execute : a_verify_reverse;
    if (action == a_verify_execute)
        KM_TRACE(trace_info, "common", "verify execute");
    entry.status_at_start = entry.cm_status | entry.current_cm_status;
    if (!verify_state(comparison, action, mode_word, call_argument))
        return fatal_failure;
    const auto outcome = result;
    can_execute(action, p_do_cleanup); // tells the objects that the verify is over
    const bool good = outcome == success || outcome == warning;
    const bool in_error = entry.current_cm_status == cs_error;
    if (good != in_error)
        return outcome;
    entry.current_cm_status = good ? entry.cm_status : cs_error;
    if (store_entry(*this, entry))
        return outcome;
    KM_TRACE(trace_error, "common", "Error updating the catalog entry");
    internal_error = ie_catalog_update;
    return fatal_failure;
}

// Against the last stable state. False: the backup package cannot be loaded.
bool cm_package::verify_state(cm_package*& comparison, int action, int mode_word,
                              int call_argument) {
    switch (catalog_entry->cm_status) {
    case cs_initial:
        KM_TRACE(trace_info, "common", "status is initial OK");
        return true;
    case cs_prepared:
    case cs_prepared_undo_prepared:
        KM_TRACE(trace_info, "common", "verify a prepared status");
        verify_tree(comparison, action, p_prepare);
        return true;
    case cs_committed:
        KM_TRACE(trace_info, "common", "verify a committed status");
        verify_tree(comparison, action, p_do);
        return true;
    case cs_prepared_undoable:
        KM_TRACE(trace_info, "common", "verify a prepared and undoable status");
        if (verify_backup())
            verify_tree(comparison, action, p_prepare);
        return true;
    case cs_committed_undoable:
        KM_TRACE(trace_info, "common", "verify a committed and undoable status");
        if (verify_backup())
            verify_tree(comparison, action, p_do);
        return true;
    case cs_committed_undo_prepared:
        KM_TRACE(trace_info, "common", "verify a committed status with a prepared undo");
        return verify_prepared_undo(comparison, action, mode_word, call_argument);
    default:
        result = failure;
        internal_error = ie_action_and_state;
        return true;
    }
}

void cm_package::verify_tree(cm_package* comparison, int action, int phase) {
    can_execute(action, phase);
    operation_result = u"success";
    if (result != success && result != warning) {
        KM_TRACE(trace_error, "common", "Error: can_execute on verify");
        return;
    }
    apply_verify(comparison, action, phase);
}

void cm_package::apply_verify(cm_package* comparison, int action, int phase) {
    verify_operation filter(comparison, action, phase);
    if (!not_verify(filter))
        return;
    const bool prepared = phase == p_prepare;
    KM_TRACE(trace_error, "common", "%s",
             prepared ? "error: not prepared status" : "error: not committed status");
    internal_error = prepared ? ie_not_prepared : ie_not_committable;
    result = failure;
}

bool cm_package::verify_backup() {
    if (catalog_entry->backup_availability &&
        check_package_existence(catalog_entry->undo_package_name))
        return true;
    KM_TRACE(trace_error, "common", "error: not undoable status");
    result = failure;
    internal_error = ie_not_undoable;
    return false;
}

bool cm_package::verify_prepared_undo(cm_package*& comparison, int action, int mode_word,
                                      int call_argument) {
    can_execute(action, p_do);
    operation_result = u"success";
    if (!load_partner())
        return false;
    prepare_partner();
    append_extra_text(*partner_package);
    const auto answer = partner_package->verify(comparison, mode_word, call_argument);
    take_back_variables();
    KM_TRACE(trace_info, "common", "verify prepared undo returned %d", static_cast<int>(answer));
    if (answer != success && answer != warning) {
        KM_TRACE(trace_error, "common", "error: not prepared undoable status");
        result = failure;
        internal_error = ie_prepared_undo;
        return true;
    }
    result = success;
    apply_verify(comparison, action, p_do);
    if (answer == warning)
        result = warning;
    return true;
}

} // namespace km
