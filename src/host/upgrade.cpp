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
#include "kept_variables.h"
#include "link_object.h"
#include "lookup.h"
#include "made_directories.h"
#include "messages.h"
#include "object_commands.h"
#include "package_stream.h"
#include "package_version.h"
#include "plan.h"
#include "planned_step.h"
#include "program_command.h"
#include "report_writer.h"
#include "resume.h"
#include "session.h"
#include "status_words.h"
#include "text_commands.h"
#include "text_object.h"
#include "tree_walk.h"
#include "upgrade_record.h"
#include "user_scope.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace kmhost {

namespace {

using objects_by_name = std::map<std::string, km::cm_object*>;

void collect_from(km::cm_command& command, objects_by_name& all) {
    auto* add = dynamic_cast<km::cm_add_object*>(&command);
    if (add && add->object && add->is_effective)
        all[add->object->get_name().mbcs_str()] = add->object;
}

// What an older version passed over is not effective any more.
void collect_installed(km::cm_package& tree, objects_by_name& all) {
    each_leaf(tree, [&all](km::cm_command& command) { collect_from(command, all); });
}

void collect_due(km::cm_package& tree, objects_by_name& all) {
    each_due_leaf(tree, [&all](km::cm_command& command) { collect_from(command, all); });
}

bool is_made(const km::km_object& old) {
    return old.created || (old.package && km::made_by(*old.package, old.path_bytes()));
}

// What goes with an older version where the newer one has no such object.
bool may_go(km::cm_object& old) {
    if (auto* directory = dynamic_cast<km::km_directory*>(&old))
        return is_made(*directory);
    auto* text = dynamic_cast<km::text_object*>(&old);
    return old.is_identical(km::p_do) && (!text || text->is_own());
}

km::cm_remove_object* removal_of(km::cm_object* copy) {
    auto* text = dynamic_cast<km::text_object*>(copy);
    return text ? km::new_text_remove_of(text) : km::new_remove_of(copy);
}

class upgrader {
  public:
    upgrader(const operation_request& request, session& at, opened_package& opened,
             worker_line& line)
        : request_(request), at_(at), opened_(opened), package_(*opened.package),
          result_(at.result()), line_(line) {}
    void run();

  private:
    bool find_old();
    bool load_old();
    void merge();
    void merge_common(km::cm_object& mine, km::cm_object& old);
    void merge_placed(km::km_object& mine, km::km_object& old);
    bool is_replaced(km::cm_object& old, const objects_by_name& mine) const;
    void take_out_programs(std::vector<km::cm_command*>& into, std::vector<km::cm_command*>& back);
    void put_in_front(const std::vector<km::cm_command*>& commands);
    void take_out(km::cm_object& old, std::vector<km::cm_command*>& into);
    int counted_by_others(km::cm_object& old) const;
    bool keep_user_files();
    bool has_old_left() const;
    void tell_nothing_to_do();
    bool execute();
    bool go_on();
    bool begin_stream();
    bool has_ended();
    void finish(km::cm_result answer);
    void plan();

    const operation_request& request_;
    session& at_;
    opened_package& opened_;
    km::cm_package& package_;
    outcome& result_;
    worker_line& line_;
    upgrade_record record_;
    std::vector<std::unique_ptr<km::cm_package>> old_;
    std::vector<km::km_object*> users_; // files that users changed, and that the run replaces
    std::vector<km::cm_object*> goes_;
    path_hashes held_; // by packages of other names
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
    const kept_variables of_the_new_version;
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

int upgrader::counted_by_others(km::cm_object& old) const {
    auto* table = at_.store.counts();
    if (!table)
        return 0;
    int own = 0;
    for (const auto& id : record_.old)
        own += table->get_ref_count(old.get_name(), km::ustring(id.name.c_str()),
                                    km::ustring(id.version.c_str()));
    return table->get_ref_count(old.get_name()) - own;
}

// What both hold: it counts for the new version where it counted, and what the old one made, or put
// into a file, is the new one's to remove.
void upgrader::merge_common(km::cm_object& mine, km::cm_object& old) {
    auto* table = at_.store.counts();
    if (old.is_shared || (table && table->get_ref_count(old.get_name()) > 0)) {
        mine.is_shared = 1;
        mine.set_ref_count(std::max(1, mine.get_ref_count()));
    }
    auto *my_place = dynamic_cast<km::km_object*>(&mine),
         *old_place = dynamic_cast<km::km_object*>(&old);
    if (my_place && old_place)
        merge_placed(*my_place, *old_place);
    auto *my_text = dynamic_cast<km::text_object*>(&mine),
         *old_text = dynamic_cast<km::text_object*>(&old);
    if (my_text && old_text)
        my_text->takes_place_of(*old_text);
}

void upgrader::merge_placed(km::km_object& mine, km::km_object& old) {
    mine.created = mine.created || is_made(old);
    if (auto* directory = dynamic_cast<km::km_directory*>(&mine))
        directory->always_put = true;
    auto *my_file = dynamic_cast<km::km_file*>(&mine), *old_file = dynamic_cast<km::km_file*>(&old);
    if (!my_file || !old_file || dynamic_cast<km::km_kept_file*>(&mine)) // that looks after itself
        return;
    my_file->learn_from(*old_file);
    if (old.exists(km::p_do) && !old.is_identical(km::p_do) && !mine.is_identical(km::p_do))
        users_.push_back(&old);
}

// A text of the new version takes the place of the old one's, which needs no removal.
bool upgrader::is_replaced(km::cm_object& old, const objects_by_name& mine) const {
    auto* text = dynamic_cast<km::text_object*>(&old);
    return text && std::any_of(mine.begin(), mine.end(), [text](const auto& one) {
               auto* newer = dynamic_cast<km::text_object*>(one.second);
               return newer && newer->takes_place_of(*text);
           });
}

// What only an older version holds, unless a user changed it or others count on it.
void upgrader::take_out(km::cm_object& old, std::vector<km::cm_command*>& into) {
    if (!old.exists(km::p_do) || counted_by_others(old) > 0 || !may_go(old) ||
        held_.contains(hash_of_path(old.get_name().mbcs_str())))
        return;
    auto* text = dynamic_cast<km::text_object*>(&old);
    if (text)
        text->settle();
    auto* copy = static_cast<km::cm_object*>(old.clone());
    auto* table = at_.store.counts();
    copy->is_shared = 0;
    if (auto* placed = dynamic_cast<km::km_object*>(copy))
        placed->created = is_made(static_cast<km::km_object&>(old));
    copy->set_ref_count(table ? -table->get_ref_count(old.get_name()) : 0);
    auto* command = removal_of(copy);
    command->set_undo_replace_if_existing(1);
    goes_.push_back(&old);
    into.push_back(command);
}

// A program that only an older version has stays no more than its files do. One that both have is
// the new version's from now on; only its undo program runs back, and then the older one's install.
void upgrader::take_out_programs(std::vector<km::cm_command*>& into,
                                 std::vector<km::cm_command*>& back) {
    std::map<std::string, const km::program_command*> mine;
    each_leaf(package_, [&mine](km::cm_command& command) {
        if (const auto* program = dynamic_cast<km::program_command*>(&command))
            mine[command.get_name().mbcs_str()] = program;
    });
    for (size_t i = 0; i < old_.size(); ++i) {
        const km::ustring version(record_.old[i].text().c_str());
        std::vector<km::cm_command*> of_one;
        each_leaf(*old_[i], [&](km::cm_command& command) {
            const auto* program = dynamic_cast<km::program_command*>(&command);
            if (!program || !command.get_executed() || !program->acts_for.empty())
                return;
            const auto same = mine.find(command.get_name().mbcs_str());
            auto* made = same == mine.end() ? program->removal_for(version)
                                            : program->return_for(version, *same->second);
            if (made)
                (same == mine.end() ? of_one : back).push_back(made);
        });
        into.insert(into.end(), of_one.rbegin(), of_one.rend());
    }
}

// In front of all others, so that their undo comes behind all others.
void upgrader::put_in_front(const std::vector<km::cm_command*>& commands) {
    auto& children = package_.get_children();
    children.reverse();
    for (auto one = commands.begin(); one != commands.end(); ++one)
        package_.add(*one, nullptr);
    children.reverse();
}

void upgrader::merge() {
    objects_by_name mine, theirs;
    collect_due(package_, mine);
    for (const auto& one : old_)
        collect_installed(*one, theirs);
    std::vector<km::cm_command*> removals, back;
    held_ = held_by_others(at_.store, {at_.id.name, ""});
    take_out_programs(removals, back);
    put_in_front(back);
    for (auto one = theirs.rbegin(); one != theirs.rend(); ++one) { // contents before directories
        const auto same = mine.find(one->first);
        if (same != mine.end())
            merge_common(*same->second, *one->second);
        else if (!is_replaced(*one->second, mine))
            take_out(*one->second, removals);
    }
    if (removals.empty())
        return;
    auto* tail = new km::cm_composite_command(1);
    tail->caption = upgrade_caption;
    package_.add(tail, nullptr);
    for (auto* one : removals)
        tail->add(one, nullptr);
}

bool upgrader::keep_user_files() {
    for (const auto* user : users_) {
        const std::string& path = user->path_bytes();
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
    check_run(package_, km::a_execute, km::m_undoable, u"upgrade");
    would_run(package_, "upgrade", at_.id, result_);
    nlohmann::json lines = nlohmann::json::array();
    const auto tell = [&](const planned_step& one) {
        lines.push_back(one.as_json());
        result_.text += one.text() + "\n";
    };
    objects_by_name mine;
    collect_due(package_, mine);
    for (const auto& [name, object] : mine) {
        if (auto* directory = dynamic_cast<km::km_directory*>(object))
            directory->always_put = false; // what stands there is asked, not what the run does
        auto* text = dynamic_cast<km::text_object*>(object);
        if (!object->exists(km::p_do) ||
            (text && !text->may_replace() && !text->is_identical(km::p_do)))
            tell(step_on("add", *object));
        else if (auto* kept = dynamic_cast<km::km_kept_file*>(object);
                 kept && !kept->is_identical(km::p_do) && kept->leaves_present())
            tell(step_on("keep", *object));
        else if (!object->is_identical(km::p_do))
            tell(step_on("replace", *object));
    }
    each_due_leaf(package_, [&tell](km::cm_command& command) {
        const planned_step one = step_of_install(command);
        if (one.action == "run" || one.action == "restart")
            tell(one);
    });
    for (auto* object : users_)
        tell(step_on("keep beside", *object));
    for (auto* object : goes_)
        tell(step_on("remove", *object));
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

// The engine's run has ended, and taking out the older versions was cut, or failed.
bool upgrader::has_old_left() const {
    upgrade_record record;
    if (!has_upgrade(at_.id, record))
        return false;
    const auto cut = intent_of(at_.id);
    return (cut && !is_reported(*cut)) ||
           std::any_of(record.old.begin(), record.old.end(), [this](const package_id& old) {
               return at_.store.find(old.name, old.version) != nullptr;
           });
}

void upgrader::tell_nothing_to_do() {
    result_.word = "nothing";
    result_.package = facts_of(at_.id, at_.entry());
    result_.text = at_.id.text() + " is installed already; nothing was to do";
    if (!request_.dry_run)
        end_run(at_.id, result_);
}

// False: it was refused, or could not begin; nothing was changed.
bool upgrader::execute() {
    const unsigned mode = km::m_binary_file | km::m_undoable; // --force means an older version only
    if (!at_.passes_gate(package_, km::o_execute_undoable, km::a_execute, mode, "upgrade"))
        return false;
    if (!keep_user_files() || !write_upgrade(record_, at_.store, result_))
        return false;
    forget_holders(at_.id); // an older list would be taken for that of this run
    finish(package_.execute(km::a_execute, static_cast<int>(mode), 0));
    return true;
}

// False: as execute.
bool upgrader::go_on() {
    km::cm_result answer = km::cm_command::failure;
    if (!continue_run(at_, opened_, request_.target, answer))
        return false;
    finish(answer);
    return true;
}

// What is read from a server has a note of where it comes from.
bool upgrader::begin_stream() {
    const source_note source = noted_wishes(request_);
    if (is_address(request_.target) &&
        !note_source(at_.id, request_.target, opened_, goes_on_from_profile(at_.id, at_.entry(), 0),
                     source, result_))
        return false;
    if (opened_.stream)
        connect(package_, opened_, 0);
    return true;
}

bool upgrader::has_ended() {
    if (!source_of(at_.id))
        return true;
    if (!result_.failed() && !settle_digest(at_, opened_, line_))
        return false;
    end_source(at_);
    return true;
}

void upgrader::run() {
    const intent wanted{"upgrade", at_.id, request_.target, request_.definitions, request_.mode, 0};
    if (request_.dry_run)
        tell_cut(wanted, result_);
    else if (!passes_cut(wanted, result_))
        return;
    const auto* entry = at_.entry();
    const bool stands = entry && stands_installed(*entry);
    if (stands && (request_.dry_run || !has_old_left()))
        return tell_nothing_to_do();
    const bool goes_on = !stands && goes_on_from_profile(at_.id, entry, 0);
    if (!stands && !goes_on) {
        if (entry && is_in_error(*entry))
            return tell_refusal(1, "upgrade", at_.id, entry, result_);
        if (!find_old() || !load_old())
            return;
        merge();
    }
    if (request_.dry_run)
        return at_.would_pass_gate(package_, km::o_execute_undoable, km::a_execute,
                                   km::m_binary_file, "upgrade")
                   ? plan()
                   : void();
    const auto cut = intent_of(at_.id);
    if (!begin_stream() || !write_intent(wanted, result_))
        return;
    if (stands)
        finish(km::cm_command::success);
    else if (!(goes_on ? go_on() : execute()))
        return put_back_intent(at_.id, cut);
    if (has_ended())
        end_run(at_.id, result_);
}

// By force a cut run is begun anew, as an install is. But its backup is all that holds the older
// version: what was done is taken back before.
bool begins_anew(const operation_request& request, const km::cm_package& package, worker_line& line,
                 outcome& result) {
    if (!(request.mode & km::m_force) || request.resuming || request.dry_run)
        return true;
    { // an intent of a run that still holds the lock is not one of a cut run
        catalog_store store;
        if (!store.open(access_kind::change, request.wait_seconds, result))
            return false;
    }
    const auto cut = intent_of({package.name.mbcs_str(), package.version.mbcs_str()});
    if (!cut || cut->command != "upgrade")
        return true;
    outcome back;
    go_back(*cut, request, line, back);
    if (back.failed()) {
        result = back;
        return false;
    }
    result.info("cut", "The upgrade of " + cut->id.text() +
                           ", which was cut, was taken back; it begins anew.");
    return true;
}

} // namespace

void upgrade(const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    opened_package opened;
    operation_request full = request;
    full.target = absolute_path(request.target);
    if (!open_to_put(full, "upgrade", true, at, opened) ||
        !begins_anew(full, *opened.package, line, result) ||
        !at.open(full.dry_run ? access_kind::read : access_kind::change, full.wait_seconds))
        return;
    opened.package->source_path = km::pathname(full.target.c_str());
    at.take(*opened.package);
    if (!fits_user_scope(*opened.package, result))
        return;
    upgrader(full, at, opened, line).run();
}

} // namespace kmhost
