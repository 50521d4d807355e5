// resume: what was cut goes on, or back
// no format
// invariant: an operation goes on by the command that was cut, with its own arguments
#include "resume.h"

#include "base_configuration.h"
#include "continue_run.h"
#include "inspect.h"
#include "intent.h"
#include "lookup.h"
#include "package_stream.h"
#include "reboot.h"
#include "report_writer.h"
#include "session.h"
#include "upgrade.h"

#include <algorithm>

namespace kmhost {

namespace {

bool is_meant(const package_id& id, const std::string& target) {
    const package_id wanted = parse_id(target);
    return target.empty() ||
           (id.name == wanted.name && (wanted.version.empty() || id.version == wanted.version));
}

// Takes over what one operation told; several operations end in one outcome.
void merge(outcome& into, const outcome& one) {
    into.messages.insert(into.messages.end(), one.messages.begin(), one.messages.end());
    into.text += one.text + (one.text.empty() || one.text.back() == '\n' ? "" : "\n");
    if (one.package)
        into.package = one.package;
    if (one.exit != exit_done && !into.failed()) {
        into.exit = one.exit;
        into.word = one.word;
    }
}

using operation = void (*)(const operation_request&, worker_line&, outcome&);

operation operation_of(const std::string& command) {
    static const struct {
        const char* word;
        operation call;
    } all[] = {{"install", install}, {"remove", remove}, {"commit", commit},
               {"accept", accept},   {"undo", undo},     {"rollback", rollback},
               {"upgrade", upgrade}};
    for (const auto& one : all)
        if (command == one.word)
            return one.call;
    return nullptr;
}

void tell_ended(const intent& cut, outcome& result) {
    result.text = "The " + cut.command + " of " + cut.id.text() + " had ended";
}

void go_on(const intent& cut, const operation_request& request, worker_line& line,
           outcome& result) {
    operation_request again;
    const bool needs_file = cut.command == "install" || cut.command == "upgrade";
    again.target = needs_file ? cut.file : cut.id.text();
    again.definitions = cut.definitions;
    again.mode = cut.mode;
    again.wait_seconds = request.wait_seconds;
    again.resuming = true;
    if (cut.command == "repair")
        return repair(again, cut.file, line, result);
    const operation call = operation_of(cut.command);
    if (!call) {
        result.fail(exit_failed, "intent",
                    "The operation '" + cut.command + "' of " + cut.id.text() + " is not known.");
        return;
    }
    call(again, line, result);
    // What was cut before or behind all of its work has nothing left to do.
    if (result.exit == exit_not_found && !needs_file) {
        result = outcome();
        tell_ended(cut, result);
        end_run(cut.id, result);
    }
}

} // namespace

void go_back(const intent& cut, const operation_request& request, worker_line& line,
             outcome& result) {
    if (source_of(cut.id))
        return take_back(cut.id, request.wait_seconds, line, result);
    if (!can_go_back(cut)) {
        result.fail(exit_refused, "no_backup",
                    "The " + cut.command + " of " + cut.id.text() +
                        " was begun without a backup and cannot be taken back. 'kmctl resume " +
                        cut.id.text() + "' finishes it.",
                    "refused");
        return;
    }
    outcome forward;
    go_on(cut, request, line, forward);
    if (forward.failed()) {
        merge(result, forward);
        return;
    }
    operation_request back;
    back.target = cut.id.text();
    back.wait_seconds = request.wait_seconds;
    undo(back, line, result);
}

namespace {

// What the engine needs to go on with a package behind a reboot.
struct behind_reboot {
    intent what;
    size_t place; // in the boot list
};

std::vector<behind_reboot> waiting_since_boot(catalog_store& store, const std::string& target,
                                              outcome& result) {
    const auto list = boot_list();
    std::vector<behind_reboot> all;
    for (const auto& one : find_packages(store.catalog(), "")) {
        if (!is_meant(one.id, target) || !waits_for_reboot(*one.entry) || !was_booted_since(one.id))
            continue;
        km::spmessage messages;
        const auto profile = open_profile(one.entry->profile_name.mbcs_str(), messages, result);
        if (!profile)
            continue;
        const auto place = std::find_if(list.begin(), list.end(), [&one](const package_id& id) {
            return id.text() == one.id.text();
        });
        all.push_back({{command_behind_reboot(*one.entry),
                        one.id,
                        profile->source_path.mbcs_str(),
                        {},
                        static_cast<unsigned>(one.entry->entry_mode) | km::m_during_reboot,
                        0},
                       static_cast<size_t>(place - list.begin())});
    }
    std::stable_sort(
        all.begin(), all.end(),
        [](const behind_reboot& one, const behind_reboot& two) { return one.place < two.place; });
    return all;
}

// What stopped for a reboot goes on behind it, in the order of the boot list. One that fails holds
// no other up; one that asks for a reboot again does where each is to have its own.
bool go_on_behind_reboot(const operation_request& request, worker_line& line, outcome& result) {
    std::vector<behind_reboot> all;
    {
        catalog_store store;
        if (!store.open(access_kind::read, request.wait_seconds, result))
            return false;
        all = waiting_since_boot(store, request.target, result);
    }
    const bool one_reboot = km::base_configuration().get_resinit_one_reboot();
    for (const auto& one : all) {
        outcome told;
        go_on(one.what, request, line, told);
        merge(result, told);
        if (!one_reboot && wants_reboot(one.what.id))
            break;
    }
    return !all.empty();
}

// Entries that wait for something although no command was cut.
void tell_waiting(const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    if (!at.open(access_kind::read, request.wait_seconds))
        return;
    for (const auto& one : find_packages(at.store.catalog(), "")) {
        const std::string next = advice(one.id, *one.entry);
        if (is_meant(one.id, request.target) && !next.empty())
            result.warn("state", one.id.text() + ": " + it_is(one.id, one.entry) + ". " + next);
    }
}

} // namespace

void resume(const operation_request& request, resume_kind how, worker_line& line, outcome& result) {
    const bool back = how == resume_kind::back;
    const auto all = read_intents();
    { // mends what a kill left in the stores, and ends what needs no more than that
        catalog_store store;
        if (!store.open(access_kind::change, request.wait_seconds, result))
            return;
    }
    bool any = !back && go_on_behind_reboot(request, line, result);
    for (const auto& cut : all) {
        if (!is_meant(cut.id, request.target))
            continue;
        any = true;
        outcome one;
        if (!intent_of(cut.id))
            tell_ended(cut, one);
        else if (back)
            go_back(cut, request, line, one);
        else
            go_on(cut, request, line, one);
        merge(result, one);
    }
    if (how != resume_kind::boot)
        tell_waiting(request, line, result);
    if (!any && !result.failed()) {
        result.word = "nothing";
        result.text += "No operation was cut; nothing was to do";
    }
}

} // namespace kmhost
