// later_operations: commit, accept, undo, rollback
// no format
// invariant: the entry that the gate allowed is the one that the operation works on
#include "holders.h"
#include "intent.h"
#include "lookup.h"
#include "made_directories.h"
#include "object_command.h"
#include "operations.h"
#include "package_file.h"
#include "plan.h"
#include "reboot.h"
#include "report_writer.h"
#include "session.h"
#include "status_words.h"
#include "upgrade_record.h"

namespace kmhost {

namespace {

struct kind {
    const char* word;
    int operation;
    km::cm_result (km::cm_package::*call)(int mode, int argument);
    unsigned (*mode_of)(const km::cm_catalog_entry& entry, unsigned asked);
};

unsigned commit_mode(const km::cm_catalog_entry& entry, unsigned asked) {
    return (static_cast<unsigned>(entry.entry_mode) & km::m_preferably_undoable) |
           (asked & km::m_during_reboot);
}
unsigned no_mode(const km::cm_catalog_entry&, unsigned asked) {
    return asked & km::m_during_reboot;
}
unsigned undo_mode(const km::cm_catalog_entry&, unsigned asked) {
    return asked & (km::m_transactional | km::m_during_reboot);
}

constexpr kind commit_kind{"commit", km::o_commit, &km::cm_package::commit, commit_mode};
constexpr kind accept_kind{"accept", km::o_accept, &km::cm_package::accept, no_mode};
constexpr kind undo_kind{"undo", km::o_undo, &km::cm_package::undo, undo_mode};
constexpr kind rollback_kind{"rollback", km::o_rollback, &km::cm_package::rollback, no_mode};

const char* done_words(int operation, const km::cm_catalog_entry& before,
                       const km::cm_catalog_entry* after) {
    switch (operation) {
    case km::o_undo:
        return undone_words(after);
    case km::o_accept:
        return "accepted; its undo is not possible any more";
    case km::o_rollback:
        return "rolled back";
    default:
        if (before.cm_status == km::cs_committed_undo_prepared)
            return undone_words(after);
        return before.last_action == km::a_execute ? installed_words(after) : removed_words(after);
    }
}

// What follows beside the engine's own work once it has succeeded.
void follow_up(session& at, const kind& what) {
    if (what.operation == km::o_accept)
        forget_upgrade(at.id);
    if (at.entry())
        return;
    if (what.operation == km::o_undo || what.operation == km::o_commit)
        restore_after_undo(at.store, at.id, at.result());
    drop_holders(at.id);
    km::hand_over_made_directories(at.id.name, at.id.version);
}

// A failed accept or rollback has touched only what it throws away, and can be run again. The gate
// allows an undo alone of what failed.
bool heal_for(const kind& what, session& at) {
    const auto* now = at.entry();
    const bool repeatable = what.operation == km::o_accept || what.operation == km::o_rollback;
    if (!repeatable || !is_in_error(*now) || now->operation_requested != what.operation ||
        now->cm_status == km::cs_error)
        return true;
    auto* healed = new km::cm_catalog_entry(*now);
    healed->current_cm_status = healed->cm_status;
    const km::cm_catalog_key key(km::ustring(at.id.name.c_str()),
                                 km::ustring(at.id.version.c_str()));
    return at.store.catalog().update(key.clone(), healed) && at.store.flush();
}

// An entry that is as before tells that the end could not be stored.
bool was_stored(const km::cm_catalog_entry* now, const km::cm_catalog_entry& before) {
    return !now || now->cm_status != before.cm_status || now->last_action != before.last_action;
}

void plan_dry(int operation, unsigned mode, const km::cm_catalog_entry& before,
              km::cm_package& package, session& at) {
    if (operation == km::o_commit && before.last_action == km::a_reverse)
        keep_and_tell_what_others_hold(at.store, at.id, package, at.result());
    plan_later(package, at.id, before, operation, mode, at.result());
}

void run(const kind& what, const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    if (!at.open(request.dry_run ? access_kind::read : access_kind::change, request.wait_seconds))
        return;
    package_id id;
    if (!find_package(at.store.catalog(), request.target, id, result))
        return;
    const km::cm_catalog_entry before = *at.store.find(id.name, id.version);
    const auto package = open_profile(before.profile_name.mbcs_str(), at.messages, result);
    if (!package)
        return;
    at.take(*package);
    const intent wanted{what.word, id, "", {}, request.mode, 0};
    const unsigned mode = what.mode_of(before, request.mode);
    if (request.dry_run) {
        tell_cut(wanted, result);
        if (at.would_pass_gate(*package, what.operation, km::a_execute, mode, what.word))
            plan_dry(what.operation, mode, before, *package, at);
        return;
    }
    if (!passes_cut(wanted, result))
        return;
    if (!heal_for(what, at))
        return result.fail(exit_failed, "catalog",
                           "The state of " + id.text() + " cannot be written to the catalog.");
    // Behind a reboot the operation itself goes on; the gate is for operations that begin.
    const bool goes_on = (mode & km::m_during_reboot) && waits_for_reboot(before);
    if (!goes_on && !at.passes_gate(*package, what.operation, km::a_execute, mode, what.word)) {
        if (at.had_ended(intent_of(id).has_value(),
                         done_words(what.operation, before, at.entry()))) {
            follow_up(at, what);
            end_run(id, result);
        }
        return;
    }
    if (!write_intent(wanted, result))
        return;
    if (what.operation == km::o_commit && before.last_action == km::a_reverse)
        keep_and_tell_what_others_hold(at.store, id, *package, result);
    auto answer = (package.get()->*what.call)(static_cast<int>(mode), 0);
    if (is_success(answer) && !was_stored(at.entry(), before))
        answer = km::cm_command::fatal_failure;
    at.finish(*package, answer, done_words(what.operation, before, at.entry()), what.word);
    if (answer == km::cm_command::success_retry)
        return; // the intent stays: it goes on later
    if (is_success(answer) && !result.failed())
        follow_up(at, what);
    end_run(id, result);
}

} // namespace

void commit(const operation_request& request, worker_line& line, outcome& result) {
    run(commit_kind, request, line, result);
}
void accept(const operation_request& request, worker_line& line, outcome& result) {
    run(accept_kind, request, line, result);
}
void undo(const operation_request& request, worker_line& line, outcome& result) {
    run(undo_kind, request, line, result);
}
void rollback(const operation_request& request, worker_line& line, outcome& result) {
    run(rollback_kind, request, line, result);
}

} // namespace kmhost
