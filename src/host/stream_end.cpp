// package_stream: the end of a package that arrived from a server
// no format
// invariant: what was not the expected file is taken back, also by the run behind a kill
#include "package_stream.h"

#include "holders.h"
#include "intent.h"
#include "made_directories.h"
#include "operations.h"
#include "reboot.h"
#include "status_words.h"
#include "stop_request.h"
#include "target_root.h"
#include "upgrade_record.h"

namespace kmhost {

namespace {

// The state of the digest that is furthest in the file; 0 without one.
long last_state(const source_note& note) {
    return note.states.empty() ? 0 : note.states.rbegin()->first;
}

// The digest of the whole file; "" if it cannot be had.
std::string digest_to_the_end(const source_note& note, opened_package& opened, outcome& result) {
    if (!opened.stream && !open_stream(note.address, &note, last_state(note), opened, result))
        return {};
    constexpr long block = 1 << 20;
    while (opened.stream->ignore(block) > 0) {
    }
    if (opened.stream->get_error()) {
        tell_fault(*opened.stream, note.address, result);
        return {};
    }
    return opened.digest ? opened.digest->finish() : "";
}

bool is_only_prepared(const km::cm_catalog_entry& entry) {
    return entry.cm_status == km::cs_prepared || entry.cm_status == km::cs_prepared_undoable ||
           entry.cm_status == km::cs_prepared_undo_prepared;
}

// The operation that takes back what stands now takes the place of the one that was begun, so that
// it is what goes on behind a kill. False: the intent cannot be written.
bool hand_over(const package_id& id, const char* command, unsigned mode, outcome& result) {
    return write_intent({command, id, "", {}, mode, 0}, result);
}

// What the entry needs to go away. The catalog is closed here.
void undo_what_stands(const package_id& id, const km::cm_catalog_entry& entry, long wait_seconds,
                      worker_line& line, outcome& result) {
    operation_request back;
    back.target = id.text();
    back.wait_seconds = wait_seconds;
    const bool undoable = entry.cm_status == km::cs_committed_undoable;
    const char* command = undoable ? "undo" : is_only_prepared(entry) ? "rollback" : "remove";
    if (!undoable && !is_only_prepared(entry))
        back.mode = km::m_force; // it is in error, or has no backup
    if (!hand_over(id, command, back.mode, result))
        return;
    (undoable ? undo : is_only_prepared(entry) ? rollback : remove)(back, line, result);
}

void accept_now(session& at) {
    const auto package =
        open_profile(at.entry()->profile_name.mbcs_str(), at.messages, at.result());
    if (!package)
        return;
    at.take(*package);
    if (at.passes_gate(*package, km::o_accept, km::a_execute, 0, "accept"))
        at.finish(*package, package->accept(0, 0), "installed", "accept");
    if (!at.result().failed())
        forget_upgrade(at.id);
}

void tell_other_digest(const package_id& id, const source_note& note, const std::string& found,
                       const outcome& taken_back, outcome& result) {
    result = outcome();
    std::string text = note.address + " is another file than expected: its SHA-256 is " + found +
                       ", not " + note.expected + ". ";
    text += taken_back.failed() ? "Taking back " + id.text() + " failed:"
                                : "The install of " + id.text() + " was taken back.";
    result.fail(exit_invalid, "digest", text);
    if (taken_back.failed())
        result.messages.insert(result.messages.end(), taken_back.messages.begin(),
                               taken_back.messages.end());
    result.package = taken_back.package;
}

constexpr long wait_for_own = 30; // seconds; the catalog was this run's a moment ago

} // namespace

bool settle_digest(session& at, opened_package& opened, worker_line& line) {
    const auto note = source_of(at.id);
    if (!note || note->expected.empty() || !at.entry() || waits_for_reboot(*at.entry()))
        return true;
    outcome told;
    const std::string found = digest_to_the_end(*note, opened, told);
    if (found.empty()) {
        at.result() = told;
        return false;
    }
    if (found == note->expected) {
        if (note->accepts && at.entry()->cm_status == km::cs_committed_undoable)
            accept_now(at);
        return true;
    }
    const km::cm_catalog_entry entry = *at.entry();
    outcome back;
    at.store.close();
    undo_what_stands(at.id, entry, wait_for_own, line, back);
    if (!back.failed())
        drop_source(at.id);
    tell_other_digest(at.id, *note, found, back, at.result());
    return false;
}

namespace {

// By the engine's own way with a command that fails: it undoes, or rolls back.
void fail_what_is_left(session& at) {
    const km::cm_catalog_entry entry = *at.entry();
    const auto package = open_profile(entry.profile_name.mbcs_str(), at.messages, at.result());
    if (!package)
        return;
    at.take(*package);
    package->connected = 1; // as it was begun
    package->stop_on_failure = 1;
    km::request_failure();
    package->execute(km::a_execute, entry.entry_mode, entry.call_argument);
    km::take_failure_request();
}

void forget_beside(session& at, const intent& cut) {
    forget_holders(at.id);
    km::hand_over_made_directories(at.id.name, at.id.version);
    upgrade_record record;
    if (cut.command == "upgrade" && has_upgrade(at.id, record)) {
        for (const auto& path : record.kept)
            km::remove_name_unseen(path);
        forget_upgrade(at.id);
    }
}

} // namespace

void take_back(const package_id& id, long wait_seconds, worker_line& line, outcome& result) {
    std::optional<km::cm_catalog_entry> left;
    const auto cut = intent_of(id);
    {
        session at(line, result);
        if (!at.open(access_kind::change, wait_seconds))
            return;
        at.id = id;
        if (at.entry() && !stands_installed(*at.entry()) && !is_in_error(*at.entry()))
            fail_what_is_left(at);
        if (result.failed())
            return;
        if (at.entry())
            left = *at.entry();
        else if (cut)
            forget_beside(at, *cut);
    }
    if (left)
        undo_what_stands(id, *left, wait_seconds, line, result);
    else
        drop_intent(id);
    if (result.failed())
        return;
    drop_source(id);
    result.package = facts_of(id, nullptr);
    result.text = "What was done of the install of " + id.text() + " was taken back";
}

} // namespace kmhost
