// inspect: verify and repair
// no format
// invariant: a repair writes only what differs
#include "inspect.h"

#include "command_filter.h"
#include "continue_run.h"
#include "difference.h"
#include "file_object.h"
#include "holders.h"
#include "intent.h"
#include "kept_variables.h"
#include "lookup.h"
#include "messages.h"
#include "object_command.h"
#include "object_words.h"
#include "package_file.h"
#include "report_writer.h"
#include "session.h"
#include "text_object.h"
#include "tree_walk.h"

#include <map>
#include <set>

namespace kmhost {

using nlohmann::json;

namespace {

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const auto& one : words)
        text += (text.empty() ? "" : ", ") + one;
    return text;
}

// Differences of the commands that failed, as lines.
long tell_differences(km::cm_package& failed, const package_id& id, json& lines,
                      std::string& text) {
    long count = 0;
    each_leaf(failed, [&](km::cm_command& command) {
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        if (!on || !on->object) {
            const std::string name = command.get_name().mbcs_str();
            lines.push_back({{"package", id.text()}, {"path", name}, {"how", {"its own check"}}});
            text += name + ": its own check says that it is not as it should be\n";
            ++count;
            return;
        }
        const auto how = differences_of(*on->object);
        const std::string path = on->object->get_name().mbcs_str();
        json one = object_keys(*on->object);
        one["package"] = id.text();
        one["how"] = how;
        lines.push_back(one);
        text += path + ": " + (how.empty() ? "still there" : joined(how)) + "\n";
        ++count;
    });
    return count;
}

// False: the package could not be asked.
bool verify_one(session& at, const package_id& id, outcome& result) {
    const km::cm_catalog_entry before = *at.store.find(id.name, id.version);
    const auto package = open_profile(before.profile_name.mbcs_str(), at.messages, result);
    if (!package)
        return false;
    at.take(*package);
    if (!at.passes_gate(*package, km::o_verify, km::a_execute, 0, "verify"))
        return false;
    km::cm_package failed;
    failed.catalog = package->catalog;
    failed.reference_table = package->reference_table;
    km::cm_package* comparison = &failed;
    if (before.last_action == km::a_reverse)
        keep_what_others_hold(at.store, id, *package);
    const auto answer = package->verify(comparison, 0, 0);
    result.package = facts_of(id, at.entry());
    result.package->result = km::result_text(answer);
    const long count = tell_differences(failed, id, result.data["differences"], result.text);
    if (is_success(answer))
        return true;
    take_messages(at.messages, result);
    if (package->internal_error == km::ie_catalog_update) {
        result.fail(exit_failed, "catalog",
                    "The state of " + id.text() + " cannot be written to the catalog.");
        return true;
    }
    if (!count && package->internal_error == km::ie_not_undoable)
        result.text +=
            id.text() + ": its backup " + before.undo_package_name.mbcs_str() + " is missing\n";
    result.fail(static_cast<exit_code>(exit_differences), "differences",
                id.text() + " is not as it was installed. " +
                    advice_on_difference(id, *at.entry()));
    return true;
}

} // namespace

void verify(const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    if (!at.open(access_kind::change, request.wait_seconds))
        return;
    result.data["differences"] = json::array();
    std::vector<package_id> wanted;
    if (request.target.empty()) {
        for (const auto& one : find_packages(at.store.catalog(), ""))
            wanted.push_back(one.id);
    } else {
        package_id id;
        if (!find_package(at.store.catalog(), request.target, id, result))
            return;
        wanted.push_back(id);
    }
    for (const auto& id : wanted)
        verify_one(at, id, result);
    if (wanted.size() != 1)
        result.package.reset();
    if (!result.failed())
        result.text = (wanted.size() == 1 ? wanted[0].text() + " is"
                                          : std::to_string(wanted.size()) + " packages are") +
                      " as installed\n";
}

namespace {

// The package file and the installed package must be the same.
bool is_same_package(const opened_package& opened, const package_id& id, const std::string& file,
                     outcome& result) {
    const package_id in_file{opened.package->name.mbcs_str(), opened.package->version.mbcs_str()};
    if (in_file.text() == id.text())
        return true;
    result.fail(exit_usage, "other_package",
                file + " is the package " + in_file.text() + ", not " + id.text() + ".");
    return false;
}

// What the file tells of the data of each of its files, by the number of their entry.
struct told_data {
    std::string digest;
    bool in_base;
};
using data_of_file = std::map<int, told_data>;

data_of_file data_of(km::cm_package& in_file) {
    data_of_file all;
    each_leaf(in_file, [&all](km::cm_command& command) {
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        if (auto* file = on ? dynamic_cast<km::km_file*>(on->object) : nullptr;
            file && file->sequence > 0)
            all[file->sequence] = {file->digest.mbcs_str(), file->in_base != 0};
    });
    return all;
}

// Where a file is put in place again the texts that the package put into it go with it, and are put
// in again, too.
class what_differs : public km::detect_any_change {
  public:
    explicit what_differs(km::cm_package& profile) {
        std::set<std::string> edited;
        each_object(profile, [&edited](km::cm_object& object) {
            if (auto* text = dynamic_cast<km::text_object*>(&object))
                edited.insert(text->path_bytes());
        });
        each_object(profile, [&](km::cm_object& object) {
            auto* file = dynamic_cast<km::km_file*>(&object);
            if (file && edited.contains(file->path_bytes()) && !file->is_identical(km::p_do))
                put_again_.insert(file->path_bytes());
        });
    }
    using km::detect_any_change::operator();
    int operator()(km::cm_object& object) override {
        auto* text = dynamic_cast<km::text_object*>(&object);
        return km::detect_any_change::operator()(object) ||
               (text && put_again_.contains(text->path_bytes()));
    }

  private:
    template <class Visit> static void each_object(km::cm_package& profile, const Visit& visit) {
        each_leaf(profile, [&visit](km::cm_command& command) {
            auto* add = dynamic_cast<km::cm_add_object*>(&command);
            if (add && add->object)
                visit(*add->object);
        });
    }

    std::set<std::string> put_again_;
};

// A repair walks the tree as it was installed: its profile knows the values of variables of that
// day, and what the install left alone. Only the data come from the file.
bool select_what_differs(km::cm_package& profile, long& count) {
    std::map<km::cm_add_object*, int> removes_modified;
    each_leaf(profile, [&](km::cm_command& command) {
        if (auto* add = dynamic_cast<km::cm_add_object*>(&command))
            removes_modified[add] = add->remove_if_modified;
    });
    what_differs changed(profile);
    if (!profile.select_commands(changed, 1))
        return false;
    each_leaf(profile, [&](km::cm_command& command) {
        ++count;
        // Selected commands replace in any case; but a later remove still spares a user's changes.
        if (auto* add = dynamic_cast<km::cm_add_object*>(&command))
            add->remove_if_modified = removes_modified[add];
    });
    return true;
}

// Another package of the same name, or another build of it, has other data.
bool has_the_data(km::cm_package& selected, const data_of_file& data, const std::string& file,
                  outcome& result) {
    std::string missing;
    each_leaf(selected, [&](km::cm_command& command) {
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        auto* object = on ? dynamic_cast<km::km_file*>(on->object) : nullptr;
        if (!object || object->sequence <= 0)
            return;
        const auto told = data.find(object->sequence);
        if (told == data.end() || told->second.digest != object->digest.mbcs_str())
            missing = object->path_bytes();
        else
            object->in_base = told->second.in_base;
    });
    if (missing.empty())
        return true;
    result.fail(exit_failed, "other_package",
                file + " is not the file that was installed: it does not hold the data of " +
                    missing + ". Nothing was changed.");
    return false;
}

void tell_whole(session& at, outcome& result) {
    km::cm_package* none = nullptr;
    const auto profile = open_profile(at.entry()->profile_name.mbcs_str(), at.messages, result);
    if (!profile)
        return;
    at.take(*profile);
    profile->verify(none, 0, 0); // heals an error that is none any more
    result.word = "nothing";
    result.package = facts_of(at.id, at.entry());
    result.text = at.id.text() + " is as installed; nothing was to do";
    end_run(at.id, result); // of a repair that was cut behind its work
}

} // namespace

void repair(const operation_request& request, const std::string& file, worker_line& line,
            outcome& result) {
    session at(line, result);
    if (!at.open(access_kind::change, request.wait_seconds))
        return;
    package_id id;
    if (!find_package(at.store.catalog(), request.target, id, result))
        return;
    const auto package = open_profile(at.store.find(id.name, id.version)->profile_name.mbcs_str(),
                                      at.messages, result);
    if (!package)
        return;
    at.take(*package);
    const auto wanted = [&](const std::string& source) {
        return intent{"repair", id, source, request.definitions, 0, 0};
    };
    if (!passes_cut(wanted(""), result))
        return;
    constexpr unsigned mode = km::m_repair;
    if (!at.passes_gate(*package, km::o_execute, km::a_execute, mode, "repair"))
        return;
    const std::string source = file.empty() ? package->source_path.mbcs_str() : absolute_path(file);
    long count = 0;
    if (!select_what_differs(*package, count))
        return tell_whole(at, result);
    opened_package opened;
    const auto open_source = [&] {
        const kept_variables of_the_installed;
        return open_package(source, {}, at.messages, opened, result, 0);
    };
    if (!open_source()) {
        if (file.empty())
            result.info("source", "The package was installed from " + source + "; 'kmctl repair " +
                                      id.text() +
                                      " --from FILE' takes its data from another place.");
        return;
    }
    if (!is_same_package(opened, id, source, result) ||
        !has_the_data(*package, data_of(*opened.package), source, result) ||
        !write_intent(wanted(source), result))
        return;
    at.take(*package); // decoding the file made it the package of the variables
    package->input_channel = opened.reader.get();
    package->source_path = km::pathname(source.c_str());
    const auto answer = package->execute(km::a_execute, static_cast<int>(mode), 0);
    package->input_channel = nullptr;
    at.finish(*package, answer, "repaired", "repair");
    if (is_success(answer))
        result.text += " (" + std::to_string(count) + (count == 1 ? " object)" : " objects)");
    end_run(id, result);
}

} // namespace kmhost
