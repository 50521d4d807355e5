// session: one run of the engine on one package
// no format
// invariant: what the catalog says at the end is what is told
#include "session.h"

#include "dynamic_variables.h"
#include "engine_run.h"
#include "location.h"
#include "made_directories.h"
#include "messages.h"
#include "program_notes.h"
#include "reboot.h"
#include "room.h"
#include "status_words.h"
#include "user_scope.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>

namespace kmhost {

bool is_success(km::cm_result result) {
    return result == km::cm_command::success || result == km::cm_command::warning;
}

bool is_in_error(const km::cm_catalog_entry& entry) {
    return (entry.cm_status | entry.current_cm_status) & km::cs_error;
}

bool is_interrupted(const km::cm_catalog_entry& entry) {
    return entry.cm_status != entry.current_cm_status && !is_in_error(entry);
}

bool stands_installed(const km::cm_catalog_entry& entry) {
    return entry.cm_status == entry.current_cm_status && entry.last_action == km::a_execute &&
           (entry.cm_status == km::cs_committed || entry.cm_status == km::cs_committed_undoable) &&
           entry.current_result == 0 && !entry.is_discovered();
}

bool session::open(access_kind kind, long wait_seconds) {
    if (!store.open(kind, wait_seconds, result_))
        return false;
    set_hooks(line_, &store, &id);
    km::forget_room();
    km::forget_made_directories();
    return true;
}

void session::take(km::cm_package& package) {
    id = {package.name.mbcs_str(), package.version.mbcs_str()};
    package.catalog = &store.catalog();
    package.reference_table = store.counts();
    package.catalog_key = km::cm_catalog_key(package.name, package.version);
    package.connected = 0;
    if (in_user_scope())
        package.package_mask = 2;
    package.set_error_message(&messages);
    km::dynamic_variable_list::set_package(&package);
}

bool session::passes_gate(km::cm_package& package, int operation, int action, unsigned mode,
                          const char* word) {
    int status = 0;
    const int answer =
        package.validate_cm_status(operation, action, static_cast<int>(mode), 0, &status);
    if (answer == 0)
        return true;
    take_messages(messages, result_);
    tell_refusal(answer, word, id, entry(), result_);
    result_.package = facts_of(id, entry());
    return false;
}

bool session::would_pass_gate(km::cm_package& package, int operation, int action, unsigned mode,
                              const char* word) {
    if (!entry() || !is_interrupted(*entry()) || (mode & km::m_force))
        return passes_gate(package, operation, action, mode, word);
    tell_refusal(1, word, id, entry(), result_);
    result_.package = facts_of(id, entry());
    return false;
}

bool session::had_ended(bool was_cut, const char* done) {
    const auto* now = entry();
    if (!was_cut || !now || is_in_error(*now) || is_interrupted(*now) || now->current_result != 0)
        return false;
    result_ = outcome();
    result_.package = facts_of(id, now);
    result_.text = id.text() + " is " + done + "; an earlier run had been cut at its end";
    return true;
}

namespace {

// Whether the run ended in front of the first change.
bool was_refused(const km::cm_package& package) {
    switch (package.internal_error) {
    case km::ie_action_and_state:
    case km::ie_not_committable:
    case km::ie_not_undoable:
    case km::ie_must_be_undoable:
    case km::ie_must_be_committable:
    case km::ie_backup_refused:
    case km::ie_backup_not_built:
    case km::ie_prepare_refused:
    case km::ie_do_refused:
    case km::ie_commit_refused:
        return true;
    default:
        return false;
    }
}

// With a backup, or in a prepare, the engine takes back what failed; without one the package stays
// known, in error.
bool was_taken_back(const km::cm_package& package, const km::cm_catalog_entry* now) {
    const bool failed_in_work = package.internal_error == km::ie_prepare_failed ||
                                package.internal_error == km::ie_do_failed ||
                                package.internal_error == km::ie_commit_failed;
    return failed_in_work && (!now || !is_in_error(*now));
}

// The work was done, and its last step was not: a backup or a profile could not go. (An undo may
// lead to an install that was in error before.)
bool ended_in_error(const km::cm_catalog_entry* now) {
    return now && is_in_error(*now) && now->cm_status != km::cs_committed;
}

} // namespace

namespace {
void note_reboot(const package_id& id, const km::cm_catalog_entry* now,
                 const km::cm_package& package, km::cm_result engine_result, outcome& result) {
    if (!now || !waits_for_reboot(*now))
        return forget_reboot(id);
    reboot_wish wish = wish_of(const_cast<km::cm_package&>(package));
    wish.wanted = engine_result >= km::cm_command::success_reboot_now &&
                  engine_result < km::cm_command::success_in_a_reboot;
    if (!wait_for_reboot(id, wish))
        result.warn("reboot",
                    "The id of this boot could not be noted: " + std::string(std::strerror(errno)) +
                        ". 'kmctl resume' will not know that the machine was booted.");
}
} // namespace

void session::finish(const km::cm_package& package, km::cm_result engine_result, const char* done,
                     const char* word) {
    take_messages(messages, result_);
    result_.package = facts_of(id, entry());
    result_.package->result = km::result_text(engine_result);
    const bool goes_on = engine_result >= km::cm_command::success_reboot_now &&
                         engine_result <= km::cm_command::success_retry;
    if (!goes_on)
        km::forget_programs(id.name, id.version);
    note_reboot(id, entry(), package, engine_result, result_);
    if (is_success(engine_result) && ended_in_error(entry()))
        return tell_failure(package, word);
    if (is_success(engine_result)) {
        result_.text = id.text() + " is " + done;
        if (engine_result == km::cm_command::warning)
            result_.warn("warning", std::string("The ") + word + " of " + id.text() +
                                        " ended with a warning; 'kmctl log " + id.text() +
                                        "' tells more.");
        return;
    }
    if (engine_result == km::cm_command::success_retry) {
        result_.fail(exit_busy, "interrupted",
                     std::string("The ") + word + " of " + id.text() +
                         " was stopped half way. 'kmctl resume " + id.text() + "' finishes it.",
                     "pending");
        return;
    }
    if (engine_result >= km::cm_command::success_reboot_now &&
        engine_result <= km::cm_command::success_in_a_reboot) {
        result_.word = "pending";
        result_.exit = exit_reboot;
        result_.text = id.text() + " waits for a reboot of this machine; behind it 'kmctl resume " +
                       id.text() + "' goes on";
        return;
    }
    tell_failure(package, word);
}

// The engine tells only its trace why its own files could not be written.
void session::tell_state_failure(const km::cm_package& package) {
    const std::string state = setting("product_dir");
    struct statvfs room {};
    if (package.internal_error != km::ie_catalog_update &&
        (was_refused(package) || !result_.messages.empty()))
        return;
    std::string why = "the catalog or the profile below " + state + " could not be written";
    if (::statvfs(state.c_str(), &room) == 0)
        why += " (" + km::in_words(static_cast<unsigned long long>(room.f_bavail) * room.f_frsize) +
               " free there)";
    result_.messages.push_back({"state", severity::error, "Maybe " + why + "."});
}

void session::tell_failure(const km::cm_package& package, const char* word) {
    tell_state_failure(package);
    std::string text = std::string("The ") + word + " of " + id.text() + " failed";
    const auto* now = entry();
    if (was_refused(package))
        text += " before anything was changed";
    else if (!now && package.internal_error == km::ie_commit_failed)
        text += ", and everything was taken back; it is not installed any more";
    else if (was_taken_back(package, now))
        text += ", and what it had done was taken back";
    else if (!now)
        text += "; files may have been put in place, and the catalog does not know of them";
    if (now)
        text += "; " + it_is(id, now);
    const std::string next = now ? advice(id, *now) : "";
    text += next.empty() ? ". Remove the cause and run the same command again." : ". " + next;
    result_.fail(exit_failed, "failed", text);
}

} // namespace kmhost
