// operations: install and remove
// no format
// invariants: a package file is checked whole before the catalog is locked; what the catalog says
// at the end is what is told
#include "operations.h"

#include "base/msg_supp.h"
#include "catalog_store.h"
#include "dynamic_variables.h"
#include "engine_run.h"
#include "location.h"
#include "lookup.h"
#include "made_directories.h"
#include "messages.h"
#include "object_command.h"
#include "package_file.h"
#include "plan.h"
#include "room.h"
#include "status_words.h"
#include "words.h"

#include <algorithm>

namespace kmhost {

namespace {

bool is_success(km::cm_result result) {
    return result == km::cm_command::success || result == km::cm_command::warning;
}

// What both operations share once the package is there.
class run {
  public:
    run(const operation_request& request, worker_line& line, outcome& result)
        : request_(request), line_(line), result_(result) {}

    bool open_store() {
        const auto kind = request_.dry_run ? access_kind::read : access_kind::change;
        if (!store_.open(kind, request_.wait_seconds, result_))
            return false;
        set_hooks(line_, &store_);
        km::forget_room();
        km::forget_made_directories();
        return true;
    }
    void take(km::cm_package& package) {
        id_ = {package.name.mbcs_str(), package.version.mbcs_str()};
        package.catalog = &store_.catalog();
        package.reference_table = store_.counts();
        package.catalog_key = km::cm_catalog_key(package.name, package.version);
        km::dynamic_variable_list::set_package(&package);
    }
    const km::cm_catalog_entry* entry() const { return store_.find(id_.name, id_.version); }
    bool passes_gate(km::cm_package& package, int action, int mode, const char* operation) {
        int status = 0;
        const int answer = package.validate_cm_status(km::o_execute, action, mode, 0, &status);
        if (answer == 0)
            return true;
        take_messages(messages_, result_);
        tell_refusal(answer, operation, id_, entry(), result_);
        result_.package = facts_of(id_, entry());
        return false;
    }
    void finish(const km::cm_package& package, km::cm_result engine_result, const char* done_words,
                const char* operation);

    const operation_request& request_;
    worker_line& line_;
    outcome& result_;
    km::spmessage messages_;
    catalog_store store_;
    package_id id_;
};

// Whether the run ended in front of the first change.
bool was_refused(const km::cm_package& package) {
    switch (package.internal_error) {
    case km::ie_action_and_state:
    case km::ie_not_committable:
    case km::ie_not_undoable:
    case km::ie_must_be_undoable:
    case km::ie_must_be_committable:
    case km::ie_backup_refused:
    case km::ie_prepare_refused:
    case km::ie_do_refused:
        return true;
    default:
        return false;
    }
}

// Objects tell why they fail; what fails in silence is the writing of catalog, counts and profiles.
void tell_silent_failure(outcome& result) {
    if (std::none_of(result.messages.begin(), result.messages.end(),
                     [](const message& one) { return one.level == severity::error; }))
        result.messages.push_back({"state", severity::error,
                                   "The state in " + setting("product_dir") +
                                       " could not be written; look for room and rights there."});
}

void run::finish(const km::cm_package& package, km::cm_result engine_result, const char* done_words,
                 const char* operation) {
    take_messages(messages_, result_);
    result_.package = facts_of(id_, entry());
    result_.package->result = km::result_text(engine_result);
    if (is_success(engine_result)) {
        result_.text = id_.text() + " is " + done_words;
        if (engine_result == km::cm_command::warning)
            result_.warn("warning", std::string("The ") + operation + " of " + id_.text() +
                                        " ended with a warning; 'kmctl log " + id_.text() +
                                        "' tells more.");
        return;
    }
    if (engine_result >= km::cm_command::success_reboot_now &&
        engine_result <= km::cm_command::success_in_a_reboot) {
        result_.word = "pending";
        result_.exit = exit_reboot;
        result_.text = id_.text() + " waits for a reboot of this machine";
        return;
    }
    tell_silent_failure(result_);
    std::string text = std::string("The ") + operation + " of " + id_.text() + " failed";
    const auto* now = entry();
    if (was_refused(package))
        text += " before anything was changed";
    else if (!now)
        text += "; files may have been put in place, and the catalog does not know of them";
    if (now)
        text += "; it is " + state_words(now) + " (" + letters_of(now) + ")";
    const std::string next = now ? advice(id_, *now) : "";
    text += next.empty() ? ". Remove the cause and run the same command again." : ". " + next;
    result_.fail(exit_failed, "failed", text);
}

bool stands_installed(const km::cm_catalog_entry& entry) {
    return entry.cm_status == entry.current_cm_status && entry.last_action == km::a_execute &&
           (entry.cm_status == km::cs_committed || entry.cm_status == km::cs_committed_undoable) &&
           entry.current_result == 0 && !entry.is_discovered();
}

bool is_interrupted(const km::cm_catalog_entry& entry) {
    return entry.cm_status != entry.current_cm_status &&
           !((entry.cm_status | entry.current_cm_status) & km::cs_error);
}

// The gate writes the tree of the package it is asked on over the profile of an interrupted
// operation; so it is asked on that profile's own.
bool passes_gate_of_install(run& at, km::cm_package& package, int mode) {
    const auto* entry = at.entry();
    if (!entry || !is_interrupted(*entry))
        return at.passes_gate(package, km::a_execute, mode, "install");
    const auto profile = open_profile(entry->profile_name.mbcs_str(), at.messages_, at.result_);
    if (!profile)
        return false;
    at.take(*profile);
    const bool passes = at.passes_gate(*profile, km::a_execute, mode, "install");
    at.take(package);
    return passes;
}

} // namespace

void install(const operation_request& request, worker_line& line, outcome& result) {
    run at(request, line, result);
    opened_package opened;
    if (!open_package(request.target, request.definitions, at.messages_, opened, result) ||
        !at.open_store())
        return;
    km::cm_package& package = *opened.package;
    at.take(package);
    const auto* entry = at.entry();
    if (entry && stands_installed(*entry) && !request.force) {
        result.word = "nothing";
        result.package = facts_of(at.id_, entry);
        result.text = at.id_.text() + " is installed already; nothing was to do ('--force' "
                                      "installs it again)";
        return;
    }
    const int mode = static_cast<int>(km::m_binary_file | (request.force ? km::m_force : 0U));
    if (request.dry_run) {
        plan_install(package, at.id_, entry, request.force, result);
        take_messages(at.messages_, result);
        return;
    }
    if (!passes_gate_of_install(at, package, mode))
        return;
    const auto answer = package.execute(km::a_execute, mode, 0);
    at.finish(package, answer, "installed", "install");
}

namespace {

// Commands that a failed install never reached put nothing in place, and must take nothing away.
void switch_off_unreached(km::cm_composite_command& tree) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto* command = all.nextElement();
        if (auto* inner = dynamic_cast<km::cm_composite_command*>(command))
            switch_off_unreached(*inner);
        else if (auto* add = dynamic_cast<km::cm_add_object*>(command); add && !add->get_executed())
            add->set_is_effective(0);
    }
}

bool was_just_finished(const catalog_store& store, const std::string& target, outcome& result) {
    const package_id id = parse_id(target);
    for (const auto& one : store.finished_removals())
        if (one.name == id.name && (id.version.empty() || one.version == id.version)) {
            result.package = facts_of(one, nullptr);
            result.text = one.text() + " is removed; an earlier run had been cut at its end";
            return true;
        }
    return false;
}

} // namespace

void remove(const operation_request& request, worker_line& line, outcome& result) {
    run at(request, line, result);
    if (!at.open_store())
        return;
    package_id id;
    outcome search;
    if (!find_package(at.store_.catalog(), request.target, id, search)) {
        if (search.exit != exit_not_found || !was_just_finished(at.store_, request.target, result))
            result = search;
        return;
    }
    const km::cm_catalog_entry before = *at.store_.find(id.name, id.version);
    const auto package = open_profile(before.profile_name.mbcs_str(), at.messages_, result);
    if (!package)
        return;
    at.take(*package);
    const bool in_error = (before.cm_status | before.current_cm_status) & km::cs_error;
    if (request.dry_run) {
        plan_remove(*package, at.id_, before, request.force, result);
        return;
    }
    const int mode = static_cast<int>(request.force ? km::m_force : 0U);
    if (!at.passes_gate(*package, km::a_reverse, mode, "remove"))
        return;
    if (in_error && before.last_action == km::a_execute)
        switch_off_unreached(*package);
    const auto answer = package->execute(km::a_reverse, mode, 0);
    at.finish(*package, answer, "removed", "remove");
    if (result.failed() || at.entry())
        return;
    if (in_error)
        km::remove_empty_made_directories(id.name, id.version);
    km::hand_over_made_directories(id.name, id.version);
}

} // namespace kmhost
