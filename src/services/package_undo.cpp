// package_undo: running of the backup package
// no format
// invariants: an undo that was cut goes on, or runs again from its file, which is idempotent; it is
// never believed done by an entry of an older state
#include "base/msg_supp.h"
#include "dependency.h"
#include "detail_package_execute.h"
#include "detail_package_store.h"
#include "dynamic_variables.h"
#include "kill_point.h"
#include "refcounttable.h"
#include "restart.h"
#include "status_words.h"
#include "trclog.h"

#include <memory>

namespace km {

namespace {
constexpr const char16_t* backup_version = u"1.0.0";
} // namespace

bool cm_package::is_complete(const cm_catalog_entry& inner, std::int32_t in) {
    return inner.cm_status == in && inner.current_cm_status == in &&
           inner.operation_in_progress == o_none;
}

// What the catalog knows of the backup package's own run.
const cm_catalog_entry* cm_package::inner_entry() const {
    if (!catalog || !catalog_entry->undo_package_name.is_valid())
        return nullptr;
    return catalog->get_as<cm_catalog_entry>(
        cm_catalog_key(catalog_entry->undo_package_name.get_text(), backup_version));
}

// Loads the backup package, if it is not in memory: the profile of its own run where there is one,
// with the data from its file; else the file.
bool cm_package::load_partner() {
    if (partner_package)
        return true;
    pathname path = catalog_entry->undo_package_name;
    const bool from_profile = get_backup_filename(catalog, path);
    cm_package* loaded = nullptr;
    if (!load_list(path, loaded) || !loaded) {
        KM_TRACE(trace_error, "common", "not enough memory to have undo package");
        internal_error = ie_memory;
        dynamic_variable_list::set_package(this);
        return false;
    }
    partner_package = loaded;
    owns_partner = true;
    if (!from_profile)
        return true;
    partner_package->release_channels();
    auto reader = std::make_unique<unzipping_channel>(
        new file_input_channel(partner_package->source_path, partner_package->current_offset));
    reader->set_skip_tail(0);
    reader->set_bytes_read(partner_package->current_offset);
    partner_package->input_channel = reader.get();
    partner_package->own_input_channel_ = std::move(reader);
    return true;
}

void cm_package::prepare_partner() {
    partner_package->catalog = catalog;
    partner_package->reference_table = reference_table;
    partner_package->set_error_message(messages);
    partner_package->package_mask = package_mask;
}

void cm_package::append_extra_text(cm_package& to) const {
    if (!extra_text.empty())
        to.extra_text += to.extra_text.empty() ? extra_text : ustring(u"; ") + extra_text;
}

void cm_package::clone_reboot_program() {
    if (!before_reboot_program)
        return;
    partner_package->adopt_before_reboot_program(
        static_cast<cm_command*>(before_reboot_program->clone()));
}

// Decoding the partner made it the package of the dynamic variables.
void cm_package::take_back_variables() { dynamic_variable_list::set_package(this); }

cm_result cm_package::undo(int mode_word, int call_argument) {
    KM_TRACE_FUNCTION("cm_package::undo");
    mode = mode_word;
    operation_name = u"undo";
    KM_TRACE(trace_info, "common", "Requested undo with this mode: %d", mode_word);
    catalog_key = cm_catalog_key(name, version);
    set_operation_option(mode_word);
    std::int32_t started = 0;
    const bool begun = external_call ? begin_external(o_undo, mode_word, call_argument, started)
                                     : begin_internal(o_undo, mode_word, call_argument);
    if (!begun)
        return failure;
    int requested = 0;
    cm_result outcome = success;
    if (!inner_run_is_complete(requested)) {
        if (!run_partner(mode_word, call_argument, outcome, requested)) {
            drop_partner();
            return fatal_failure;
        }
    }
    KM_TRACE(trace_info, "common", "undo execute returned %d", static_cast<int>(outcome));
    const auto answer = fold_undo(requested, outcome, started);
    drop_partner();
    return answer;
}

// A run of the backup package that ended, and was cut before this package's entry told so. A failed
// one is forgotten: the file runs again, whole.
bool cm_package::inner_run_is_complete(int& requested) {
    const auto* inner = inner_entry();
    if (!inner)
        return false;
    if (is_complete(*inner, cs_committed) || is_complete(*inner, cs_prepared)) {
        requested = inner->operation_requested;
        return true;
    }
    if (inner->current_cm_status == cs_error)
        drop_stale_undo();
    return false;
}

// False: the partner cannot be loaded, or the catalog not be written; nothing has happened then.
bool cm_package::run_partner(int mode_word, int call_argument, cm_result& outcome, int& requested) {
    if (!undo_preloaded && !load_partner())
        return false;
    if (!partner_package)
        return false;
    if (external_call && !note_begun()) {
        internal_error = ie_catalog_update;
        return false;
    }
    prepare_partner();
    if (connected) {
        partner_package->connected = 1;
        partner_package->caller_word = caller_word;
    }
    partner_package->original_name = name;
    partner_package->original_version = version;
    clone_reboot_program();
    partner_package->partner_package = this;
    partner_package->owns_partner = false;
    partner_package->executing_as_undo = 1;
    KM_KILL_POINT("undo.before_partner");
    outcome = partner_package->execute(a_execute, mode_word, call_argument);
    KM_KILL_POINT("undo.after_partner");
    partner_package->executing_as_undo = 0;
    partner_package->partner_package = nullptr;
    requested = partner_package->catalog_entry ? partner_package->catalog_entry->operation_requested
                                               : static_cast<int>(o_execute);
    if (!undo_preloaded)
        partner_package->release_channels();
    take_back_variables();
    return true;
}

void cm_package::drop_partner() {
    if (undo_preloaded || !owns_partner)
        return;
    delete partner_package;
    partner_package = nullptr;
    take_back_variables();
}

cm_result cm_package::fold_undo(int requested, cm_result outcome, std::int32_t started) {
    auto& entry = *catalog_entry;
    switch (requested) {
    case o_execute:
        KM_TRACE(trace_info, "common", "Executed undo as o_undo");
        break;
    case o_prepare:
        KM_TRACE(trace_info, "common", "Executed undo as o_undo_ep");
        KM_TRACE(trace_info, "common", "Executed undo and not auto-commit");
        entry.operation_in_progress = o_undo_ep;
        if (external_call)
            entry.operation_requested = o_undo_ep;
        break;
    default:
        KM_TRACE(trace_error, "common", "Executed a not available undo type");
        internal_error = ie_operation;
        return fatal_failure;
    }
    const int next = next_status(entry.operation_in_progress, entry.current_cm_status);
    switch (outcome) {
    case success:
    case warning:
        entry.current_result = 0;
        return next == cs_initial ? undone_to_beginning(outcome, started)
                                  : undone_to(next, outcome);
    case success_reboot_now:
    case success_reboot_now_reexecute:
    case success_reboot_after:
    case success_reboot_after_reexecute:
    case success_in_a_reboot:
    case success_retry:
        return undo_waits(next, outcome);
    case failure_with_info:
        note_not_begun();
        return failure;
    default:
        return undo_failed(next, outcome);
    }
}

cm_result cm_package::undone_to_beginning(cm_result outcome, std::int32_t started) {
    auto& entry = *catalog_entry;
    if (!external_call) {
        entry.current_cm_status = cs_initial;
        return outcome;
    }
    const bool inverted = entry.inverse_action && entry.last_action == a_reverse;
    if (!inverted) {
        if (delete_package_reference(1, 1) == success)
            return outcome;
        entry.current_cm_status = cs_error;
        if (!store_entry_now(*this))
            KM_TRACE(trace_error, "common", "Error updating the catalog entry for the package");
        return outcome;
    }
    const cm_catalog_entry promising(entry);
    reset_to_committed(entry);
    if (started & cs_error)
        entry.current_cm_status = cs_error;
    if (store_without_backup(*this, promising))
        return outcome;
    internal_error = ie_catalog_update;
    return fatal_failure;
}

cm_result cm_package::undone_to(int next, cm_result outcome) {
    auto& entry = *catalog_entry;
    entry.current_cm_status = next;
    if (!external_call)
        return outcome;
    entry.operation_in_progress = o_none;
    entry.entry_operation_result = outcome;
    entry.cm_status = next;
    if (store_entry_now(*this))
        return outcome;
    internal_error = ie_catalog_update;
    return fatal_failure;
}

cm_result cm_package::undo_waits(int next, cm_result outcome) {
    auto& entry = *catalog_entry;
    KM_TRACE(trace_warning, "common", "We are going to reboot");
    entry.current_result = outcome;
    if (!external_call)
        return outcome;
    entry.current_cm_status = next;
    if (store_entry_now(*this))
        return outcome;
    restart helper;
    helper.set_package(this);
    helper.remove_restart_condition();
    helper.remove_restart();
    internal_error = ie_catalog_update;
    return fatal_failure;
}

cm_result cm_package::undo_failed(int next, cm_result outcome) {
    auto& entry = *catalog_entry;
    entry.current_result = 0;
    if (!external_call) {
        entry.cm_status = entry.current_cm_status;
        entry.current_cm_status = cs_error;
        return outcome;
    }
    entry.current_cm_status = cs_error;
    entry.operation_in_progress = o_none;
    entry.entry_operation_result = outcome;
    if (next != cs_initial)
        entry.cm_status = next;
    if (store_entry_now(*this))
        return outcome;
    internal_error = ie_catalog_update;
    return fatal_failure;
}

cm_result cm_package::do_remove_on_original_command(int index, int phase) {
    if (!partner_package) {
        KM_TRACE(trace_error, "common", "invalid installed_package");
        return fatal_failure;
    }
    cm_command* original = partner_package->get_command_executed(index);
    if (!original)
        return fatal_failure;
    original->do_execute(a_reverse, phase);
    return original->result;
}

} // namespace km
