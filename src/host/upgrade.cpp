// upgrade: a new version in the place of the older ones
// no format
// invariants: the older version works until the new one stands whole; everything that the run
// changes is in its backup
#include "upgrade.h"

#include "continue_run.h"
#include "directory_object.h"
#include "kept_file_object.h"
#include "holders.h"
#include "intent.h"
#include "link_object.h"
#include "lookup.h"
#include "made_directories.h"
#include "messages.h"
#include "object_commands.h"
#include "package_file.h"
#include "package_version.h"
#include "planned_step.h"
#include "session.h"
#include "status_words.h"
#include "tree_walk.h"
#include "upgrade_record.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace kmhost {

namespace {

using objects_by_path = std::map<std::string, km::km_object*>;

void collect_from(km::cm_command& command, objects_by_path& all) {
    auto* add = dynamic_cast<km::cm_add_object*>(&command);
    auto* object = add ? dynamic_cast<km::km_object*>(add->object) : nullptr;
    if (object && add->is_effective)
        all[object->path_bytes()] = object;
}

// What an older version passed over is not effective any more.
void collect_installed(km::cm_package& tree, objects_by_path& all) {
    each_leaf(tree, [&all](km::cm_command& command) { collect_from(command, all); });
}

void collect_due(km::cm_package& tree, objects_by_path& all) {
    each_due_leaf(tree, [&all](km::cm_command& command) { collect_from(command, all); });
}

bool is_made(const km::km_object& old) {
    return old.created || (old.package && km::made_by(*old.package, old.path_bytes()));
}

class upgrader {
  public:
    upgrader(const operation_request& request, session& at, km::cm_package& package)
        : request_(request), at_(at), package_(package), result_(at.result()) {}
    void run();

  private:
    bool find_old();
    bool load_old();
    void merge();
    void merge_common(km::km_object& mine, km::km_object& old);
    void take_out(km::km_object& old, std::vector<km::cm_command*>& into);
    int counted_by_others(const km::km_object& old) const;
    bool keep_user_files();
    bool execute();
    void finish(km::cm_result answer);
    void plan();

    const operation_request& request_;
    session& at_;
    km::cm_package& package_;
    outcome& result_;
    upgrade_record record_;
    std::vector<std::unique_ptr<km::cm_package>> old_;
    std::vector<std::string> users_; // files that users changed, and that the run replaces
    std::vector<std::string> goes_;
};

bool upgrader::find_old() {
    record_.id = at_.id;
    for (const auto& one : find_packages(at_.store.catalog(), "")) {
        if (one.id.name != at_.id.name || one.id.version == at_.id.version)
            continue;
        if (!stands_installed(*one.entry) && !found_different(*one.entry)) {
            tell_refusal(1, "upgrade", one.id, one.entry, result_);
            return false;
        }
        const int order = km::compare_versions_znp(km::ustring(one.id.version.c_str()),
                                                   km::ustring(at_.id.version.c_str()));
        if (order > 0 && !(request_.mode & km::m_force)) {
            result_.fail(exit_refused, "newer",
                         one.id.text() + " is installed, and is newer than " + at_.id.text() +
                             ". '--force' goes back to the older version.",
                         "refused");
            return false;
        }
        record_.old.push_back(one.id);
    }
    return true;
}

bool upgrader::load_old() {
    for (const auto& id : record_.old) {
        const auto* entry = at_.store.find(id.name, id.version);
        auto profile = open_profile(entry->profile_name.mbcs_str(), at_.messages, result_);
        if (!profile)
            return false;
        profile->catalog = &at_.store.catalog();
        profile->reference_table = at_.store.counts();
        old_.push_back(std::move(profile));
    }
    at_.take(package_); // decoding the others made them the package of the variables
    return true;
}

int upgrader::counted_by_others(const km::km_object& old) const {
    auto* table = at_.store.counts();
    if (!table)
        return 0;
    int own = 0;
    for (const auto& id : record_.old)
        own += table->get_ref_count(old.path, km::ustring(id.name.c_str()),
                                    km::ustring(id.version.c_str()));
    return table->get_ref_count(old.path) - own;
}

// What both hold: it counts for the new version where it counted, and a directory that the old one
// made is the new one's to remove.
void upgrader::merge_common(km::km_object& mine, km::km_object& old) {
    auto* table = at_.store.counts();
    if (old.is_shared || (table && table->get_ref_count(old.path) > 0)) {
        mine.is_shared = 1;
        mine.set_ref_count(std::max(1, mine.get_ref_count()));
    }
    mine.created = mine.created || is_made(old);
    if (auto* directory = dynamic_cast<km::km_directory*>(&mine))
        directory->always_put = true;
    const bool is_file = dynamic_cast<km::km_file*>(&old) && dynamic_cast<km::km_file*>(&mine) &&
                         !dynamic_cast<km::km_kept_file*>(&mine); // that one looks after itself
    if (is_file && old.exists(km::p_do) && !old.is_identical(km::p_do) &&
        !mine.is_identical(km::p_do))
        users_.push_back(old.path_bytes());
}

// What only an older version holds, unless a user changed it or others count on it.
void upgrader::take_out(km::km_object& old, std::vector<km::cm_command*>& into) {
    const bool is_directory = dynamic_cast<km::km_directory*>(&old) != nullptr;
    if (!old.exists(km::p_do) || counted_by_others(old) > 0 ||
        (is_directory ? !is_made(old) : !old.is_identical(km::p_do)))
        return;
    auto* copy = static_cast<km::km_object*>(old.clone());
    auto* table = at_.store.counts();
    copy->is_shared = 0;
    copy->created = is_made(old);
    copy->set_ref_count(table ? -table->get_ref_count(old.path) : 0);
    auto* command = km::new_remove_of(copy);
    command->set_undo_replace_if_existing(1);
    goes_.push_back(old.path_bytes());
    into.push_back(command);
}

void upgrader::merge() {
    objects_by_path mine, theirs;
    collect_due(package_, mine);
    for (const auto& one : old_)
        collect_installed(*one, theirs);
    std::vector<km::cm_command*> removals;
    for (auto one = theirs.rbegin(); one != theirs.rend(); ++one) { // contents before directories
        const auto same = mine.find(one->first);
        if (same != mine.end())
            merge_common(*same->second, *one->second);
        else
            take_out(*one->second, removals);
    }
    if (removals.empty())
        return;
    auto* tail = new km::cm_composite_command(1);
    package_.add(tail, nullptr);
    for (auto* one : removals)
        tail->add(one, nullptr);
}

bool upgrader::keep_user_files() {
    for (const auto& path : users_) {
        const std::string beside = path + ".kmsave";
        km::remove_name_unseen(beside);
        if (!km::link_name(path, beside)) {
            result_.fail(exit_failed, "keep",
                         path + ", which was changed, cannot be kept as " + beside + ": " +
                             std::strerror(errno) + ". Nothing was changed.");
            return false;
        }
        record_.kept.push_back(beside);
    }
    return true;
}

void upgrader::plan() {
    nlohmann::json lines = nlohmann::json::array();
    const auto tell = [&](const char* what, const std::string& path) {
        lines.push_back({{"action", what}, {"path", path}});
        result_.text += std::string(what) + " " + path + "\n";
    };
    objects_by_path mine;
    collect_due(package_, mine);
    for (const auto& [path, object] : mine) {
        if (auto* directory = dynamic_cast<km::km_directory*>(object))
            directory->always_put = false; // what stands there is asked, not what the run does
        if (!object->exists(km::p_do))
            tell("add", path);
        else if (auto* kept = dynamic_cast<km::km_kept_file*>(object);
                 kept && !kept->is_identical(km::p_do) && kept->leaves_present())
            tell("keep", path);
        else if (!object->is_identical(km::p_do))
            tell("replace", path);
    }
    each_due_leaf(package_, [&tell](km::cm_command& command) {
        const planned_step one = step_of_install(command);
        if (one.action == "run" || one.action == "restart")
            tell(one.action.c_str(), one.path);
    });
    for (const auto& path : users_)
        tell("keep beside", path);
    for (const auto& path : goes_)
        tell("remove", path);
    result_.package = facts_of(at_.id, at_.entry());
    result_.data["plan"] = lines;
    result_.text += "The upgrade to " + at_.id.text() + " would do this; nothing was changed";
}

void upgrader::finish(km::cm_result answer) {
    at_.finish(package_, answer, "installed", "upgrade");
    if (!is_success(answer)) {
        if (!at_.entry()) {
            for (const auto& path : record_.kept)
                km::remove_name_unseen(path);
            forget_upgrade(at_.id);
        }
        return;
    }
    write_holders(at_.id, package_);
    upgrade_record record;
    if (has_upgrade(at_.id, record) && !drop_old_versions(record, at_.store, result_))
        return;
    std::string replaced;
    for (const auto& id : record.old)
        replaced += " " + id.text();
    result_.text = at_.id.text() + " is installed" +
                   (replaced.empty() ? "" : " in the place of" + replaced) + "; 'kmctl undo " +
                   at_.id.name + "' brings back what was, 'kmctl accept " + at_.id.name +
                   "' makes it final";
    for (const auto& path : record.kept)
        result_.warn("kept", "Your changes are kept in " + path + ".");
    result_.data["replaced"] = replaced.empty() ? "" : replaced.substr(1);
}

bool upgrader::execute() {
    const unsigned mode = km::m_binary_file | km::m_undoable; // --force means an older version only
    if (!at_.passes_gate(package_, km::o_execute_undoable, km::a_execute, mode, "upgrade"))
        return false;
    finish(package_.execute(km::a_execute, static_cast<int>(mode), 0));
    return true;
}

void upgrader::run() {
    const auto* entry = at_.entry();
    if (entry && stands_installed(*entry)) {
        upgrade_record record;
        if (has_upgrade(at_.id, record) && intent_of(at_.id)) { // cut behind the engine's run
            finish(km::cm_command::success);
            drop_intent(at_.id);
            return;
        }
        result_.word = "nothing";
        result_.package = facts_of(at_.id, entry);
        result_.text = at_.id.text() + " is installed already; nothing was to do";
        return;
    }
    if (goes_on_from_profile(entry, 0)) {
        km::cm_result answer = km::cm_command::failure;
        if (continue_run(at_, request_.target, answer))
            finish(answer);
        drop_intent(at_.id);
        return;
    }
    if (entry && is_in_error(*entry))
        return tell_refusal(1, "upgrade", at_.id, entry, result_);
    if (!find_old() || !load_old())
        return;
    merge();
    if (request_.dry_run)
        return at_.would_pass_gate(package_, km::o_execute_undoable, km::a_execute,
                                   km::m_binary_file, "upgrade")
                   ? plan()
                   : void();
    if (!write_intent({"upgrade", at_.id, request_.target, request_.definitions, request_.mode, 0},
                      result_))
        return;
    if (keep_user_files() && write_upgrade(record_, at_.store, result_))
        execute();
    drop_intent(at_.id);
}

} // namespace

void upgrade(const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    opened_package opened;
    operation_request full = request;
    std::error_code error;
    const auto path = std::filesystem::absolute(request.target, error);
    if (!error)
        full.target = path.lexically_normal().string();
    if (!open_package(full.target, full.definitions, at.messages, opened, result) ||
        !at.open(full.dry_run ? access_kind::read : access_kind::change, full.wait_seconds))
        return;
    opened.package->source_path = km::pathname(full.target.c_str());
    at.take(*opened.package);
    upgrader(full, at, *opened.package).run();
}

} // namespace kmhost
