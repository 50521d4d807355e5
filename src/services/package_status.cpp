// package_status: gate: may this operation run now
// no format
// invariants: a refusal changes nothing, but that an interrupted operation becomes an error; the
// state diagram is never read outside its table
#include "base/msg_supp.h"
#include "booting_list.h"
#include "detail_package_store.h"
#include "detail_state_diagram.h"
#include "package.h"
#include "status_words.h"
#include "trclog.h"

namespace km {

// What the steps of one question share. A step answers `next_step` to go on.
struct cm_package::gate {
    int operation;
    int action;
    std::uint32_t mode;
    int* status_out;
    std::int32_t current = 0;
    bool found = true;

    bool is_execute() const {
        return operation >= o_execute && operation <= o_prepare_undo_prepare;
    }
    bool forces() const { return mode & m_force; }
    bool mends() const { return mode & (m_repair | m_source); }
    int refuse(int answer, const char* why) const {
        KM_TRACE(trace_error, "common", "%s", why);
        *status_out = current;
        return answer;
    }
};

namespace {
constexpr int next_step = -2;
constexpr const char* not_in_catalog = "Error: entry is not in the catalog";
} // namespace

int cm_package::next_status(int operation, int from) {
    if (operation < 0 || operation >= diagram_rows || from < 0 || from >= diagram_columns)
        return from;
    return _state_diagram[operation][from].next;
}

int cm_package::validate_cm_status(int operation, int action, int mode_word, int, int* status_out) {
    KM_TRACE_FUNCTION("cm_package::validate_cm_status");
    int ignored;
    gate at{operation, action, static_cast<std::uint32_t>(mode_word),
            status_out ? status_out : &ignored};
    *at.status_out = -1;
    KM_TRACE(trace_error, "common", "Mode is %hx", static_cast<unsigned short>(mode_word));
    int answer = next_step;
    if (!external_call && catalog_entry)
        at.current = catalog_entry->current_cm_status;
    else
        answer = check_listed_entry(at);
    if (answer == next_step && at.found && catalog_entry->current_result == success_in_a_reboot)
        answer = at.refuse(4, "Error: package waiting fro a reboot");
    if (answer == next_step)
        answer = at.is_execute() ? check_execute_state(at) : check_other_state(at);
    KM_TRACE(trace_info, "common", "return data = %d", answer);
    return answer;
}

// The entry as the catalog holds it.
int cm_package::check_listed_entry(gate& at) {
    catalog_key = cm_catalog_key(name, version);
    at.found = find_catalog_entry(0);
    if (!at.found) {
        if (result == success || result == warning)
            return next_step;
        KM_TRACE(trace_error, "common", "Error: failure validating the cm status");
        return -1;
    }
    // Of a discovered package only a remove may run, with few options.
    constexpr std::uint32_t beside_a_remove = 0xFFDDEFFE;
    constexpr std::uint32_t never = m_preview_only | m_repair | m_source;
    if (catalog_entry->is_hidden()) {
        KM_TRACE(trace_error, "common", "Error: pkg in hidden status !");
        return 5;
    }
    if (catalog_entry->is_discovered() &&
        ((at.action == a_reverse && (at.mode & beside_a_remove)) || (at.mode & never) ||
         at.operation == o_verify)) {
        KM_TRACE(trace_error, "common", "Error: not acceptable operation on a discovered pkg !");
        return 1;
    }
    *at.status_out = at.current = catalog_entry->cm_status;
    if (catalog_entry->cm_status == catalog_entry->current_cm_status)
        return next_step;
    return catalog_entry->current_cm_status == cs_error ? check_error_entry(at)
                                                        : check_interrupted_entry(at);
}

int cm_package::check_error_entry(gate& at) {
    KM_TRACE(trace_warning, "common", "package is in error status");
    auto& entry = *catalog_entry;
    const auto refuse = [&](const char* why) {
        KM_TRACE(trace_error, "common", "%s", why);
        *at.status_out = entry.cm_status | entry.current_cm_status;
        return 1;
    };
    const bool mendable =
        at.mends() && entry.cm_status == cs_committed && entry.last_action == a_execute;
    if (at.is_execute())
        return at.forces() || mendable
                   ? next_step
                   : refuse("Error: with pkg in error not force option or pkg not in IC--E status "
                            "during src\\rep");
    const bool undoes =
        (at.operation == o_undo || at.operation == o_undo_ep) &&
        (*at.status_out == cs_prepared_undoable || *at.status_out == cs_committed_undoable);
    if (undoes || at.operation == o_verify) {
        entry.current_cm_status = entry.cm_status; // healed, if the operation stores it
        return next_step;
    }
    if (at.operation == o_any)
        return next_step;
    return refuse("Error: package is not in the proper state for this oper");
}

// An operation that was cut. Where no reboot explains it, it becomes an error, on disk.
int cm_package::check_interrupted_entry(gate& at) {
    KM_TRACE(trace_error, "common", "Error: package is not in a final state");
    auto& entry = *catalog_entry;
    if (is_in_booting_list(name, version, nullptr, nullptr) && entry.cm_status >= cs_initial &&
        entry.cm_status < diagram_columns)
        return 2;
    KM_TRACE(trace_info, "common", "updating to continue operation ... ");
    entry.cm_status = entry.current_cm_status = cs_error;
    entry.current_result = fatal_failure;
    resume_stage = 0;
    if (!download_list(entry.profile_name, 1)) {
        KM_TRACE(trace_error, "common", "Error downloading the list");
        return 2;
    }
    if (!store_entry(*this, entry)) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
        return 2;
    }
    if (!at.forces()) {
        if (messages)
            messages->add(571L, name.mbcs_str(), version.mbcs_str());
        return 1;
    }
    at.current = cs_error;
    return next_step;
}

int cm_package::check_execute_state(gate& at) {
    if (!at.found && at.mends()) {
        KM_TRACE(trace_error, "common", "%s", not_in_catalog);
        return 3;
    }
    if (!at.found)
        return 0;
    const auto& entry = *catalog_entry;
    if (at.current == cs_committed && entry.last_action == a_reverse && at.mends()) {
        KM_TRACE(trace_error, "common", "Error: entry is it RC --- status !!");
        return 3;
    }
    if (at.current == cs_initial)
        return at.action == entry.last_action
                   ? 0
                   : at.refuse(2, "Error: action inverted and package is not final status");
    KM_TRACE(trace_warning, "common", "Catalog entry is not in the initial status");
    if (resumes_interrupted_run(at.action))
        return 0;
    if (at.action == a_reverse && entry.cm_status == cs_committed_undoable &&
        (at.mode & m_intelligent_remove)) {
        KM_TRACE(trace_info, "common",
                 "intelligent remove enabled, accept the ICU-- status for remove");
        return 0;
    }
    if (at.action != entry.last_action && entry.cm_status == cs_committed)
        return 0;
    if (at.forces() ||
        (at.mends() && entry.cm_status == cs_committed && entry.last_action == a_execute))
        return 0;
    return at.refuse(1, "Error: not force option or package is not IC--- status during src\\rep");
}

namespace {
bool is_prepared(int status) {
    return status == cs_prepared || status == cs_prepared_undo_prepared ||
           status == cs_prepared_undoable;
}
} // namespace

int cm_package::check_other_state(gate& at) {
    if (at.operation < o_rollback || at.operation > o_any)
        return 0; // no operation with a state of its own
    if (!at.found) {
        KM_TRACE(trace_error, "common", "%s", not_in_catalog);
        return 3;
    }
    switch (at.operation) {
    case o_rollback:
        if (!is_prepared(at.current))
            return at.refuse(1, "Error: package is not in the proper state for rollback");
        if (at.current == cs_prepared && (at.mode & m_transactional) && external_call)
            return at.refuse(
                1, "Error: package is not in the proper state for transactional rollback");
        return 0;
    case o_undo:
    case o_undo_ep:
        return at.current == cs_committed_undoable
                   ? 0
                   : at.refuse(1, "Error: package is not in the proper state for undo");
    case o_accept:
        if ((at.mode & m_intelligent_remove) && catalog_entry->cm_status == cs_committed) {
            KM_TRACE(trace_info, "common",
                     "intelligent remove enabled, accept the IC--- status for accept");
            *at.status_out = catalog_entry->cm_status;
            return 0;
        }
        return at.current >= cs_prepared_undo_prepared && at.current <= cs_committed_undoable
                   ? 0
                   : at.refuse(1, "Error: package is not in the proper state for accept");
    case o_commit:
        return is_prepared(at.current) || at.current == cs_committed_undo_prepared
                   ? 0
                   : at.refuse(1, "Error: package is not in the proper state for commit");
    case o_verify:
        return !is_prepared(at.current)
                   ? 0
                   : at.refuse(1, "Error: package is not in the proper state for Verify");
    case o_any:
        return at.current == cs_committed
                   ? 0
                   : at.refuse(1,
                               "Error: package is not in the proper state for Install/Preview ANY");
    default:
        return 0;
    }
}

} // namespace km
