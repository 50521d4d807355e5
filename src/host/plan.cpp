// plan: what an operation would do, without doing it
// no format
// invariant: only operations that change nothing are called
#include "plan.h"

#include "base/msg_supp.h"
#include "directory_object.h"
#include "kept_file_object.h"
#include "object_commands.h"
#include "object_words.h"
#include "messages.h"
#include "package_file.h"
#include "planned_step.h"
#include "status_words.h"
#include "text_object.h"
#include "tree_walk.h"

namespace kmhost {

namespace {

struct tally {
    nlohmann::json lines = nlohmann::json::array();
    std::string text;

    void add(const planned_step& one) {
        lines.push_back(one.as_json());
        text += one.text() + "\n";
    }
    void add(const char* what, km::cm_object& object, const std::string& note = "") {
        add(step_on(what, object, note));
    }
    void add(const char* what, const std::string& path) { add({what, path, "", "", ""}); }
};

void tell_plan(const tally& all, const package_id& id, const km::cm_catalog_entry* entry,
               const char* operation, outcome& result) {
    result.package = facts_of(id, entry);
    result.data["plan"] = all.lines;
    result.text = all.text + (all.lines.empty() ? "Nothing would be changed by the " : "The ") +
                  operation + " of " + id.text() +
                  (all.lines.empty() ? "" : " would do this; nothing was changed");
}

} // namespace

namespace {
// False: it is needed, and cannot be made.
bool check_backup(km::cm_package& package, int action, unsigned mode) {
    package.result = km::cm_command::success;
    package.operation_is_preferably_undoable = (mode & km::m_preferably_undoable) != 0;
    const bool at_commit =
        (mode & km::m_transactional) && (mode & km::m_undo_ability_transactional);
    if (at_commit || !(mode & (km::m_undoable | km::m_preferably_undoable)))
        return true;
    package.can_backup(action);
    if (package.result != km::cm_command::temporary_failure ||
        !package.operation_is_preferably_undoable)
        return package.result == km::cm_command::success;
    package.operation_is_preferably_undoable = 0;
    return true;
}
} // namespace

void check_run(km::cm_package& package, int action, unsigned mode, const char16_t* word) {
    package.operation_name = word;
    if (check_backup(package, action, mode))
        package.can_execute(action, mode & km::m_transactional ? km::p_prepare : km::p_do);
}

bool would_run(const km::cm_package& package, const std::string& word, const package_id& id,
               outcome& result) {
    take_messages(*package.messages, result);
    if (package.result == km::cm_command::success)
        return true;
    result.fail(exit_failed, "check", "The " + word + " of " + id.text() + " would fail.");
    return false;
}

void plan_install(km::cm_package& package, const package_id& id, const km::cm_catalog_entry* entry,
                  unsigned mode, outcome& result) {
    check_run(package, km::a_execute, mode, u"install");
    would_run(package, "install", id, result);
    tally all;
    each_due_leaf(package, [&all](km::cm_command& command) {
        const planned_step one = step_of_install(command);
        if (!one.action.empty() && one.action != "leave")
            all.add(one);
    });
    tell_plan(all, id, entry, "install", result);
}

namespace {
// What was there before the package stays.
bool is_of_package(km::cm_object& object) {
    if (const auto* directory = dynamic_cast<const km::km_directory*>(&object))
        return directory->created;
    auto* text = dynamic_cast<km::text_object*>(&object);
    return !text || text->is_own();
}
} // namespace

void plan_remove(km::cm_package& package, const package_id& id, const km::cm_catalog_entry& entry,
                 unsigned mode, outcome& result) {
    check_run(package, km::a_reverse, mode, u"remove");
    would_run(package, "remove", id, result);
    tally all;
    each_due_leaf(package, [&](km::cm_command& command) {
        if (const planned_step one = step_of_remove(command); !one.action.empty())
            all.add(one);
        auto* add = dynamic_cast<km::cm_add_object*>(&command);
        if (!add || !add->object || !stands_to_go(*add->object))
            return;
        auto* kept_file = dynamic_cast<km::km_kept_file*>(add->object);
        const bool shared = add->object->is_shared;
        const auto* with_mark = dynamic_cast<const km::km_add_command*>(add);
        const bool is_held = with_mark && with_mark->stays_for_others;
        const bool goes = shared ? add->is_to_be_shared_removed() : add->is_to_be_removed();
        if (is_held || !goes || !is_of_package(*add->object))
            all.add("keep", *add->object);
        else if (kept_file && kept_file->is_changed())
            all.add("keep", *add->object, "it was changed");
        else
            all.add("remove", *add->object);
    });
    tell_plan(all, id, &entry, "remove", result);
}

namespace {

// A backup that is made at the commit needs its room now; what is prepared has its own.
void check_commit(km::cm_package& package, const km::cm_catalog_entry& entry, unsigned mode) {
    const bool backs_up =
        entry.current_cm_status == km::cs_prepared_undo_prepared && !entry.backup_availability;
    package.operation_name = u"commit";
    const unsigned backup_mode = backs_up && !mode ? unsigned{km::m_undoable} : mode;
    if (!backs_up || check_backup(package, entry.last_action, backup_mode))
        package.can_execute(entry.last_action, km::p_commit);
}

void plan_commit(km::cm_package& package, bool installs, tally& all) {
    each_due_leaf(package, [&](km::cm_command& command) {
        const planned_step one = installs ? step_of_install(command) : step_of_remove(command);
        if (!one.action.empty() && one.action != "leave")
            all.add(one);
        auto* add = dynamic_cast<km::cm_add_object*>(&command);
        if (!installs && add && add->object && add->is_effective && stands_to_go(*add->object))
            all.add("remove", *add->object);
    });
}

// As the package goes about it: with its catalog, counts and messages.
void check_undo(km::cm_package& undo, const km::cm_package& package, unsigned mode) {
    undo.catalog = package.catalog;
    undo.reference_table = package.reference_table;
    undo.package_mask = package.package_mask;
    undo.original_name = package.name;
    undo.original_version = package.version;
    check_run(undo, km::a_execute, mode, u"undo");
}

void plan_undo(km::cm_package& package, const km::cm_catalog_entry& entry, bool is_prepared,
               unsigned mode, tally& all, outcome& result) {
    const auto undo = open_profile(entry.undo_package_name.mbcs_str(), *package.messages, result);
    if (!undo)
        return;
    if (!is_prepared) {
        check_undo(*undo, package, mode);
        would_run(*undo, "undo", {package.name.mbcs_str(), package.version.mbcs_str()}, result);
    }
    each_leaf(*undo, [&](km::cm_command& command) {
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        if (!on || !on->object) {
            if (const planned_step one = step_of_install(command); !one.action.empty())
                all.add(one);
            return;
        }
        auto* kept_file = dynamic_cast<km::km_kept_file*>(on->object);
        if (kept_file && kept_file->brings_back && on->object->exists(km::p_do) &&
            !kept_file->is_changed()) {
            if (!on->object->is_identical(km::p_do))
                all.add("remove", path_of(*on->object) + km::kept_suffix);
        } else if (kept_file && on->object->exists(km::p_do) && kept_file->leaves_present()) {
            all.add("keep", *on->object, "it was changed");
        } else if (dynamic_cast<km::cm_add_object*>(on)) {
            if (!on->object->is_identical(km::p_do))
                all.add(restoring_action(*on->object), *on->object);
        } else if (stands_to_go(*on->object)) {
            all.add("remove", *on->object);
        }
    });
}

void plan_rollback(km::cm_package& package, tally& all) {
    each_leaf(package, [&](km::cm_command& command) {
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        const bool is_staged = on && on->object && !dynamic_cast<km::text_object*>(on->object);
        if (is_staged && on->object->exists(km::p_prepare))
            all.add("drop what is prepared for", *on->object);
    });
}

} // namespace

void plan_later(km::cm_package& package, const package_id& id, const km::cm_catalog_entry& entry,
                int operation, unsigned mode, outcome& result) {
    tally all;
    switch (operation) {
    case km::o_commit:
        if (entry.current_cm_status == km::cs_committed_undo_prepared) {
            plan_undo(package, entry, true, mode, all, result);
            break;
        }
        check_commit(package, entry, mode);
        would_run(package, "commit", id, result);
        plan_commit(package, entry.last_action == km::a_execute, all);
        break;
    case km::o_undo:
        plan_undo(package, entry, false, mode, all, result);
        break;
    case km::o_rollback:
        plan_rollback(package, all);
        break;
    default:
        if (entry.undo_package_name.is_valid())
            all.add("throw away the backup", entry.undo_package_name.mbcs_str());
    }
    const char* const words[] = {"rollback", "undo", "undo", "verify", "accept", "commit"};
    tell_plan(all, id, &entry, words[operation - km::o_rollback], result);
}

} // namespace kmhost
