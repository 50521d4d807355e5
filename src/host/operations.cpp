// operations: install and remove
// no format
// invariants: a package file is checked whole before the catalog is locked; the intent stands
// before the first change
#include "operations.h"

#include "continue_run.h"
#include "holders.h"
#include "intent.h"
#include "lookup.h"
#include "made_directories.h"
#include "object_command.h"
#include "package_stream.h"
#include "plan.h"
#include "program_command.h"
#include "reboot.h"
#include "report_writer.h"
#include "session.h"
#include "status_words.h"
#include "upgrade_record.h"
#include "user_scope.h"

#include <cstring>
#include <memory>
#include <vector>

namespace kmhost {

namespace {

// The gate writes the tree of the package it is asked on over the profile of an interrupted
// operation; so it is asked on that profile's own.
bool passes_gate_of_install(session& at, km::cm_package& package, unsigned mode) {
    const auto* entry = at.entry();
    if (!entry || !is_interrupted(*entry))
        return at.passes_gate(package, km::o_execute, km::a_execute, mode, "install");
    const auto profile = open_profile(entry->profile_name.mbcs_str(), at.messages, at.result());
    if (!profile)
        return false;
    at.take(*profile);
    const bool passes = at.passes_gate(*profile, km::o_execute, km::a_execute, mode, "install");
    at.take(package);
    return passes;
}

void tell_nothing_to_do(session& at, km::cm_package& package, bool dry_run) {
    outcome& result = at.result();
    result.word = "nothing";
    result.package = facts_of(at.id, at.entry());
    result.text = at.id.text() + " is installed already; nothing was to do ('--force' installs it "
                                 "again)";
    if (!dry_run && intent_of(at.id)) { // of this very command, which was cut behind its work
        write_holders(at.id, package);
        end_run(at.id, result);
    }
}

// A chain of prepare, commit and accept that was cut behind its first link.
bool is_cut_chain(const km::cm_catalog_entry* entry, unsigned mode, int action) {
    return entry && (mode & km::m_auto_commit) && entry->last_action == action &&
           entry->cm_status == entry->current_cm_status &&
           (entry->cm_status == km::cs_prepared ||
            entry->cm_status == km::cs_prepared_undo_prepared ||
            entry->cm_status == km::cs_prepared_undoable);
}

void finish_chain(session& at, unsigned mode, const char* word, const char* done) {
    auto package = open_profile(at.entry()->profile_name.mbcs_str(), at.messages, at.result());
    if (!package)
        return;
    at.take(*package);
    if (at.entry()->last_action == km::a_reverse)
        keep_and_tell_what_others_hold(at.store, at.id, *package, at.result());
    auto answer = package->commit(static_cast<int>(mode & km::m_preferably_undoable), 0);
    const auto* now = at.entry();
    if (is_success(answer) && (mode & km::m_auto_accept) && now &&
        now->cm_status == km::cs_committed_undoable) {
        package = open_profile(now->profile_name.mbcs_str(), at.messages, at.result());
        if (!package)
            return;
        at.take(*package);
        answer = package->accept(0, 0);
    }
    at.finish(*package, answer, done, word);
}

// False: it was refused, or could not begin, and changed nothing.
bool run_install(session& at, opened_package& opened, const intent& what, bool was_cut) {
    km::cm_package& package = *opened.package;
    const unsigned mode = what.mode | km::m_binary_file;
    if (is_cut_chain(at.entry(), mode, km::a_execute)) {
        finish_chain(at, mode, "install", "installed");
        return true;
    }
    km::cm_result answer = km::cm_command::failure;
    if (goes_on_from_profile(at.id, at.entry(), mode)) {
        if (!continue_run(at, opened, what.file, answer))
            return false;
    } else {
        if (!passes_gate_of_install(at, package, mode)) {
            if (!at.had_ended(was_cut, installed_words(at.entry())))
                return false;
            write_holders(at.id, package);
            return true;
        }
        forget_holders(at.id); // an older list would be taken for that of this run
        answer = package.execute(km::a_execute, static_cast<int>(mode), 0);
    }
    at.finish(package, answer, installed_words(at.entry()), "install");
    if (at.entry())
        write_holders(at.id, package);
    return true;
}

} // namespace

namespace {

// The process ends behind the operation: to take the tree of thousands of commands apart would only
// hold its answer up.
void keep_until_exit(std::unique_ptr<km::cm_package> package) {
    static auto& kept = *new std::vector<std::unique_ptr<km::cm_package>>;
    kept.push_back(std::move(package));
}

// A digest is known at the end of a stream only: until then everything can be taken back.
operation_request prepared(const operation_request& given) {
    operation_request request = given;
    if (given.expected.empty() || !is_address(given.target))
        return request;
    if (!(request.mode & (km::m_undoable | km::m_undo_ability_transactional)))
        request.mode = (request.mode & ~unsigned{km::m_preferably_undoable}) | km::m_undoable;
    request.accepts = request.mode & km::m_auto_accept;
    request.mode &= ~unsigned{km::m_auto_accept};
    return request;
}

// Whether the operation came to its end, with everything that follows on it.
bool end_install(session& at, opened_package& opened, worker_line& line) {
    if (!source_of(at.id))
        return true;
    if (!at.result().failed() && !settle_digest(at, opened, line))
        return false;
    end_source(at);
    return true;
}

void change_by_install(const operation_request& request, const intent& wanted, session& at,
                       opened_package& opened, worker_line& line) {
    const bool streamed = is_address(request.target);
    const auto cut = intent_of(at.id);
    const source_note source = noted_wishes(request);
    const bool goes_on = goes_on_from_profile(at.id, at.entry(), request.mode);
    if (streamed && !note_source(at.id, request.target, opened, goes_on, source, at.result()))
        return;
    if (!write_intent(wanted, at.result()))
        return;
    if (opened.stream)
        connect(*opened.package, opened, 0);
    if (!run_install(at, opened, wanted, cut.has_value())) {
        put_back_intent(at.id, cut);
        if (streamed && !cut)
            drop_source(at.id);
        return;
    }
    if (end_install(at, opened, line))
        end_run(at.id, at.result());
}

} // namespace

void install(const operation_request& given, worker_line& line, outcome& result) {
    const operation_request request = prepared(given);
    session at(line, result);
    opened_package opened;
    if (!open_to_put(request, "install", !(request.mode & km::m_force), at, opened) ||
        !at.open(request.dry_run ? access_kind::read : access_kind::change, request.wait_seconds))
        return;
    km::cm_package& package = *opened.package;
    package.source_path = km::pathname(absolute_path(request.target).c_str());
    at.take(package);
    if (!fits_user_scope(package, result))
        return;
    const intent wanted{"install",           at.id,        absolute_path(request.target),
                        request.definitions, request.mode, 0};
    const bool forced = request.mode & km::m_force;
    if (request.dry_run)
        tell_cut(wanted, result);
    else if (!passes_cut(wanted, result))
        return;
    if (at.entry() && stands_installed(*at.entry()) && !forced &&
        !(request.mode & (km::m_repair | km::m_source))) {
        if (request.dry_run || end_install(at, opened, line))
            tell_nothing_to_do(at, package, request.dry_run);
        return;
    }
    if (request.dry_run) {
        if (!at.would_pass_gate(package, km::o_execute, km::a_execute, request.mode, "install"))
            return;
        return plan_install(package, at.id, at.entry(), request.mode, result);
    }
    change_by_install(request, wanted, at, opened, line);
    keep_until_exit(std::move(opened.package));
}

namespace {

// A failed remove leaves the entry of the install before it, and that one had come to its end.
bool failed_in_install(const km::cm_catalog_entry& entry) {
    return ((entry.cm_status | entry.current_cm_status) & km::cs_error) &&
           entry.last_action == km::a_execute && entry.operation_in_progress != km::o_none;
}

// A remove that fails puts back the entry of the failed install. Its new profile tells no more what
// that install had reached; but it keeps what was switched off here.
void forget_failed_install(catalog_store& store, const package_id& id,
                           const km::cm_catalog_entry& before) {
    const auto* entry = store.find(id.name, id.version);
    if (!entry || !failed_in_install(*entry) ||
        std::strcmp(entry->profile_name.mbcs_str(), before.profile_name.mbcs_str()) == 0)
        return;
    auto* ended = new km::cm_catalog_entry(*entry);
    ended->operation_in_progress = km::o_none;
    const km::cm_catalog_key key(km::ustring(id.name.c_str()), km::ustring(id.version.c_str()));
    store.catalog().update(key.clone(), ended);
    store.flush();
}

// Commands that a failed install never reached put nothing in place, and must take nothing away.
void switch_off_unreached(km::cm_composite_command& tree) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto* command = all.nextElement();
        if (auto* inner = dynamic_cast<km::cm_composite_command*>(command))
            switch_off_unreached(*inner);
        else if (auto* add = dynamic_cast<km::cm_add_object*>(command); add && !add->get_executed())
            add->set_is_effective(0);
        else if (auto* program = dynamic_cast<km::program_command*>(command);
                 program && !program->get_executed())
            program->programs[km::program_command::of_remove] = {};
    }
}

bool was_just_finished(const catalog_store& store, const std::string& target, outcome& result) {
    const package_id id = parse_id(target);
    for (const auto& one : store.finished_removals())
        if (one.name == id.name && (id.version.empty() || one.version == id.version)) {
            result.package = facts_of(one, nullptr);
            result.text = one.text() + " is removed; an earlier run had been cut at its end";
            end_run(one, result);
            return true;
        }
    return false;
}

// Of a package whose undo is still possible the engine removes nothing; accepting it first does.
bool accept_before_remove(session& at, km::cm_package& package) {
    if (!at.passes_gate(package, km::o_accept, km::a_execute, km::m_intelligent_remove, "accept"))
        return false;
    const auto answer = package.accept(0, 0);
    if (is_success(answer)) {
        forget_upgrade(at.id);
        return true;
    }
    at.finish(package, answer, "accepted", "accept");
    return false;
}

// The second run of a removal that had failed is no inverse of an install any more, and the engine
// keeps its entry; nothing of the package stands.
void drop_removed_entry(session& at, km::cm_package& package, km::cm_result answer) {
    const auto* entry = at.entry();
    if (is_success(answer) && entry && entry->last_action == km::a_reverse &&
        entry->cm_status == km::cs_committed && entry->current_cm_status == km::cs_committed)
        package.delete_package_reference(1, 1);
}

// What follows beside the engine's own work.
void end_remove(session& at, const km::cm_catalog_entry& before) {
    if (at.result().failed() || at.entry())
        return forget_failed_install(at.store, at.id, before);
    if (is_in_error(before))
        km::remove_empty_made_directories(at.id.name, at.id.version);
    km::hand_over_made_directories(at.id.name, at.id.version);
    drop_holders(at.id);
}

// False: it was refused, and changed nothing.
bool run_remove(session& at, std::unique_ptr<km::cm_package>& package,
                const km::cm_catalog_entry& before, unsigned asked, bool was_cut) {
    outcome& result = at.result();
    const bool accepts_first =
        (asked & km::m_intelligent_remove) && before.cm_status == km::cs_committed_undoable;
    if (accepts_first) {
        if (!accept_before_remove(at, *package))
            return true;
        package = open_profile(at.entry()->profile_name.mbcs_str(), at.messages, result);
        if (!package)
            return true;
        at.take(*package);
    }
    if (is_cut_chain(&before, asked, km::a_reverse)) {
        finish_chain(at, asked, "remove", "removed");
        end_remove(at, before);
        return true;
    }
    // Behind a reboot the operation itself goes on; the gate is for operations that begin.
    const bool goes_on = (asked & km::m_during_reboot) && waits_for_reboot(before);
    if (!goes_on && !at.passes_gate(*package, km::o_execute, km::a_reverse, asked, "remove"))
        return at.had_ended(was_cut, removed_words(at.entry())) || accepts_first;
    if (failed_in_install(before))
        switch_off_unreached(*package);
    keep_and_tell_what_others_hold(at.store, at.id, *package, result);
    forget_upgrade(at.id); // what it replaced must not come back behind a removal
    const int mode = static_cast<int>(asked & ~km::m_intelligent_remove);
    const auto answer = package->execute(km::a_reverse, mode, 0);
    drop_removed_entry(at, *package, answer);
    at.finish(*package, answer, removed_words(at.entry()), "remove");
    end_remove(at, before);
    return true;
}

void dry_remove(session& at, const package_id& id, const km::cm_catalog_entry& before,
                const intent& wanted) {
    const auto package = open_profile(before.profile_name.mbcs_str(), at.messages, at.result());
    if (!package)
        return;
    at.take(*package);
    tell_cut(wanted, at.result());
    if (!at.would_pass_gate(*package, km::o_execute, km::a_reverse, wanted.mode, "remove"))
        return;
    if (failed_in_install(before))
        switch_off_unreached(*package);
    keep_and_tell_what_others_hold(at.store, id, *package, at.result());
    plan_remove(*package, id, before, wanted.mode, at.result());
}

} // namespace

void remove(const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    if (!at.open(request.dry_run ? access_kind::read : access_kind::change, request.wait_seconds))
        return;
    package_id id;
    outcome search;
    if (!find_package(at.store.catalog(), request.target, id, search)) {
        if (search.exit != exit_not_found || !was_just_finished(at.store, request.target, result))
            result = search;
        return;
    }
    const km::cm_catalog_entry before = *at.store.find(id.name, id.version);
    const intent wanted{"remove", id, "", {}, request.mode, 0};
    if (request.dry_run)
        return dry_remove(at, id, before, wanted);
    if (!passes_cut(wanted, result))
        return;
    const auto cut = intent_of(id);
    begun_intent begun(wanted);
    auto package = open_profile(before.profile_name.mbcs_str(), at.messages, result);
    if (!begun.stands(result))
        return;
    if (!package)
        return put_back_intent(id, cut);
    at.take(*package);
    const bool ran = run_remove(at, package, before, request.mode, cut.has_value());
    keep_until_exit(std::move(package));
    if (ran)
        end_run(id, result);
    else
        put_back_intent(id, cut);
}

} // namespace kmhost
