// package_checks: which operation the mode and the attributes really give
// no format
// invariant: a refusal is final: no later check takes it back
#include "base/msg_supp.h"
#include "detail_package_execute.h"
#include "trclog.h"

namespace km {

namespace {
constexpr std::int32_t may_not = 1;
constexpr std::int32_t must = 4;

void replace_bit(int& mode, std::uint32_t from, std::uint32_t to) {
    mode = static_cast<int>((static_cast<std::uint32_t>(mode) & ~from) | to);
}
} // namespace

void cm_package::refuse(const char* trace, const char* attribute, int error) {
    KM_TRACE(trace_error, "common", "%s", trace);
    if (attribute && messages)
        messages->add(209L, attribute);
    internal_error = error;
    result = failure;
}

void cm_package::check_execute(int action, int& mode_word) {
    if (result != success)
        return;
    check_attributes(mode_word);
    if (result != success)
        return;
    set_operation_option(mode_word);
    auto& entry = *catalog_entry;
    if (entry.operation_in_progress != o_none)
        return;
    KM_TRACE(trace_info, "common", "the operation in progress is still undefined");
    entry.operation_in_progress = o_execute;
    choose_operation(action, mode_word);
    if (result == success)
        entry.operation_requested = entry.operation_in_progress;
}

// What the package allows and demands counts in an unconnected run.
void cm_package::check_attributes(int& mode_word) {
    if (!connected && (mode_word & m_undoable) && (undoable & may_not))
        return refuse("mode is undoable but package is not", "not undoable", ie_not_undoable);
    if (!connected && !(mode_word & m_undoable) && (undoable & must))
        return refuse("mode is not undoable but package is mandatory", "undoable",
                      ie_must_be_undoable);
    if (mode_word & m_preferably_undoable) {
        if (undoable & may_not) {
            KM_TRACE(trace_warning, "common",
                     "mode is preferably_undoable but package is not undoable");
            replace_bit(mode_word, m_preferably_undoable, 0);
        } else if (undoable & must) {
            KM_TRACE(trace_warning, "common",
                     "mode is preferably_undoable and package is mandatory undoable");
            replace_bit(mode_word, m_preferably_undoable, m_undoable);
        }
    }
    if (!connected && (mode_word & m_transactional) && (committable & may_not))
        return refuse("mode is transactional but package is not committable", "not committable",
                      ie_not_committable);
    if (!connected && !(mode_word & m_transactional) && (committable & must))
        return refuse("mode is not transactional but package is committable", "committable",
                      ie_must_be_committable);
    if ((mode_word & m_preferably_not_transactional) && (committable & must)) {
        KM_TRACE(trace_warning, "common",
                 "mode is preferably_not_transactional and package is committable mandatory");
        replace_bit(mode_word, m_preferably_not_transactional, m_transactional);
    }
}

void cm_package::choose_operation(int action, int& mode_word) {
    constexpr std::uint32_t wants_backup =
        m_undoable | m_preferably_undoable | m_undo_ability_transactional;
    if (mode_word & wants_backup) {
        if ((mode_word & m_transactional) && (mode_word & m_undo_ability_transactional))
            catalog_entry->operation_in_progress = o_prepare_undo_prepare;
        else
            choose_backup(action, mode_word);
        if (result != success)
            return;
    }
    if ((mode_word & m_transactional) && !(mode_word & m_preferably_not_transactional))
        choose_prepare(action);
    else
        choose_do(action, mode_word);
}

void cm_package::choose_backup(int action, int& mode_word) {
    operation_phase = u"backup";
    can_backup(action);
    operation_result = u"success";
    if (result == success) {
        catalog_entry->operation_in_progress = o_execute_undoable;
    } else if (result != temporary_failure) {
        refuse("backup cannot be done", nullptr, ie_backup_refused);
    } else if (!(mode_word & m_preferably_undoable)) {
        refuse("backup cannot be done for a temporary failure", nullptr, ie_backup_refused);
    } else {
        replace_bit(mode_word, m_preferably_undoable, 0);
        operation_is_preferably_undoable = 0;
        result = success;
    }
}

void cm_package::choose_prepare(int action) {
    operation_phase = u"prepare";
    can_execute(action, p_prepare);
    operation_result = u"success";
    if (result != success)
        return refuse("execute with phase p_prepare cannot be done", nullptr, ie_prepare_refused);
    auto& operation = catalog_entry->operation_in_progress;
    if (operation == o_execute)
        operation = o_prepare;
    else if (operation == o_execute_undoable)
        operation = o_prepare_undoable;
}

void cm_package::choose_do(int action, int& mode_word) {
    operation_phase = u"commit";
    can_execute(action, p_do);
    operation_result = u"success";
    if (result == success)
        return;
    if (result != temporary_failure)
        return refuse("execute with phase p_do cannot be done", nullptr, ie_do_refused);
    const bool may_prepare = committable != 0 && !(committable & may_not);
    if (!(mode_word & m_preferably_not_transactional) || !may_prepare)
        return refuse("execute with phase p_do cannot be done for a temporary failure", nullptr,
                      ie_do_refused);
    KM_TRACE(trace_warning, "common", "execute with phase p_do failed for a temporary failure");
    operation_is_preferably_not_transactional = 0;
    operation_is_transactional = 1;
    choose_prepare(action);
    if (result == success)
        replace_bit(mode_word, m_preferably_not_transactional, m_transactional);
}

} // namespace km
