// plan: what an operation would do, without doing it
// no format
// invariant: only operations that change nothing are called
#include "plan.h"

#include "base/msg_supp.h"
#include "directory_object.h"
#include "kept_file_object.h"
#include "object_command.h"
#include "object_words.h"
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
    if (!(mode & (km::m_undoable | km::m_preferably_undoable)))
        return true;
    package.can_backup(action);
    if (package.result != km::cm_command::temporary_failure ||
        !package.operation_is_preferably_undoable)
        return package.result == km::cm_command::success;
    package.operation_is_preferably_undoable = 0;
    return true;
}
} // namespace

void check_install(km::cm_package& package, unsigned mode) {
    package.operation_name = u"install";
    if (check_backup(package, km::a_execute, mode))
        package.can_execute(km::a_execute, mode & km::m_transactional ? km::p_prepare : km::p_do);
}

void plan_install(km::cm_package& package, const package_id& id, const km::cm_catalog_entry* entry,
                  unsigned mode, outcome& result) {
    check_install(package, mode);
    if (package.result != km::cm_command::success)
        result.fail(exit_failed, "check", "The install of " + id.text() + " would fail.");
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
                 const path_hashes& held, unsigned mode, outcome& result) {
    package.operation_name = u"remove";
    if (!check_backup(package, km::a_reverse, mode))
        result.fail(exit_failed, "check", "The remove of " + id.text() + " would fail.");
    tally all;
    long kept = 0;
    each_due_leaf(package, [&](km::cm_command& command) {
        if (const planned_step one = step_of_remove(command); !one.action.empty())
            all.add(one);
        auto* add = dynamic_cast<km::cm_add_object*>(&command);
        if (!add || !add->object || !stands_to_go(*add->object))
            return;
        auto* kept_file = dynamic_cast<km::km_kept_file*>(add->object);
        const bool shared = add->object->is_shared;
        const bool is_held =
            add->is_effective && held.count(hash_of_path(add->object->get_name().mbcs_str()));
        kept += is_held;
        const bool goes = shared ? add->is_to_be_shared_removed() : add->is_to_be_removed();
        if (is_held || !goes || !is_of_package(*add->object))
            all.add("keep", *add->object);
        else if (kept_file && kept_file->is_changed())
            all.add("keep", *add->object, "it was changed");
        else
            all.add("remove", *add->object);
    });
    tell_held(kept, result);
    tell_plan(all, id, &entry, "remove", result);
}

namespace {

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

void plan_undo(const km::cm_catalog_entry& entry, tally& all, outcome& result) {
    km::spmessage messages;
    const auto undo = open_profile(entry.undo_package_name.mbcs_str(), messages, result);
    if (!undo)
        return;
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
                int operation, outcome& result) {
    tally all;
    switch (operation) {
    case km::o_commit:
        if (entry.current_cm_status == km::cs_committed_undo_prepared)
            plan_undo(entry, all, result);
        else
            plan_commit(package, entry.last_action == km::a_execute, all);
        break;
    case km::o_undo:
        plan_undo(entry, all, result);
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
