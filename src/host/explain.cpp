// explain: preview, explain, who-uses and history
// no format
// invariant: nothing is changed
#include "builtin_variables.h"
#include "catalog_store.h"
#include "chain_names.h"
#include "continue_run.h"
#include "expression.h"
#include "inspect.h"
#include "kept_file_object.h"
#include "location.h"
#include "lookup.h"
#include "messages.h"
#include "object_command.h"
#include "object_words.h"
#include "package_file.h"
#include "plan.h"
#include "planned_step.h"
#include "program_command.h"
#include "queries.h"
#include "room.h"
#include "session.h"
#include "text_object.h"
#include "tree_walk.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <sys/stat.h>

namespace kmhost {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

using room_accounts = std::map<dev_t, km::room_account>;

void add_backup_room(long bytes, room_accounts& all) {
    km::room_account one;
    dev_t device = 0;
    if (km::account_of_backups(device, one))
        all.emplace(device, one).first->second.add_to_backup(bytes);
}

// What the object needs, and its backup where there is to be one.
void add_room(km::km_object& object, unsigned mode, room_accounts& all) {
    std::string path = object.path_bytes();
    km::place where = km::locate(path);
    while (!where.found() && where.parent != "/" && !where.parent.empty()) {
        path = where.parent;
        where = km::locate(path);
    }
    km::room_account one;
    dev_t device = 0;
    if (!where.found() || !km::room_in(where.directory, one.free, device))
        return;
    one.at = where.parent;
    struct stat about {};
    const bool replaces = km::look_at(object.path_bytes(), about) && S_ISREG(about.st_mode);
    const bool in_place = replaces && !(mode & km::m_transactional);
    all.emplace(device, one).first->second.add(object.size, in_place ? about.st_size : 0);
    if (replaces && (mode & (km::m_undoable | km::m_preferably_undoable)))
        add_backup_room(about.st_size, all);
}

void tell_room(const room_accounts& rooms, outcome& result) {
    result.data["room"] = json::array();
    for (const auto& [device, one] : rooms) {
        result.data["room"].push_back(
            {{"at", one.at}, {"needed", one.needed()}, {"backup", one.backup}, {"free", one.free}});
        result.text +=
            one.at + ": " + km::in_words(one.needed()) + " needed" +
            (one.backup ? " (" + km::in_words(one.backup) + " of it for the backup)" : "") + ", " +
            km::in_words(one.free) + " free\n";
    }
}

} // namespace

void preview(const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    opened_package opened;
    if (!open_package(request.target, request.definitions, at.messages, opened, result) ||
        !at.open(access_kind::read, request.wait_seconds))
        return;
    km::cm_package& package = *opened.package;
    at.take(package);
    package.operation_name = u"install";
    result.package = facts_of(at.id, at.entry());
    result.data["plan"] = json::array();
    room_accounts rooms;
    std::map<std::string, long> counts;
    each_due_leaf(package, [&](km::cm_command& command) {
        const planned_step one = step_of_install(command);
        if (one.action.empty())
            return;
        const long size = command.get_size();
        ++counts[one.action];
        json shown = one.as_json();
        shown["size"] = size;
        result.data["plan"].push_back(shown);
        result.text += one.text() + (size ? " (" + std::to_string(size) + " bytes)\n" : "\n");
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        auto* object = on ? dynamic_cast<km::km_object*>(on->object) : nullptr;
        if (object && (one.action == "add" || one.action == "replace"))
            add_room(*object, request.mode, rooms);
    });
    tell_room(rooms, result);
    check_run(package, km::a_execute, request.mode, u"install");
    would_run(package, "install", at.id, result);
    result.text +=
        std::to_string(counts["add"]) + " to add, " + std::to_string(counts["replace"]) +
        " to replace, " + std::to_string(counts["leave"]) + " to leave alone" +
        (counts["keep"] ? ", " + std::to_string(counts["keep"]) + " that were changed and stay"
                        : "") +
        (counts["remove"] ? ", " + std::to_string(counts["remove"]) + " to remove" : "") +
        (counts["run"] ? ", programs to run: " + std::to_string(counts["run"]) : "") +
        "; nothing was changed";
}

namespace {

// The names that a condition asks for, with value and list.
json values_of(const km::ustring& condition, const km::variable_list* chain) {
    json values = json::array();
    const std::string text = condition.mbcs_str();
    for (size_t at = 0; (at = text.find("$(", at)) != std::string::npos;) {
        const size_t end = text.find(')', at);
        if (end == std::string::npos)
            break;
        const std::string name = text.substr(at + 2, end - at - 2);
        at = end;
        std::string value, list;
        const bool known = look_up(chain, name, value, list);
        values.push_back({{"name", name},
                          {"value", known ? json(value) : json()},
                          {"list", known ? list : "undefined"}});
    }
    return values;
}

std::string values_text(const json& values) {
    std::string text;
    for (const auto& one : values)
        text += (text.empty() ? "" : ", ") + one["name"].get<std::string>() + "=" +
                (one["value"].is_string() ? one["value"].get<std::string>() + " from " : "") +
                one["list"].get<std::string>();
    return text;
}

struct explanation {
    bool runs = true;
    std::string why;
};

// Conditions of the composites around a command count for it, too.
explanation condition_of(const km::cm_command& command) {
    if (command.condition.empty())
        return {};
    km::condition when(command.condition);
    const bool holds = when.evaluate(nullptr);
    if (!when.error.empty())
        return {false, "its condition cannot be evaluated: " + without_id(when.error.mbcs_str())};
    return {holds, holds ? "its condition is true" : "its condition is false"};
}

explanation program_reason(const km::program_command& program) {
    if (program.program_for(km::a_execute, km::p_do))
        return {true, "its install program runs"};
    return {false, "it has no install program"};
}

explanation object_reason(km::cm_command& command) {
    if (const auto* program = dynamic_cast<const km::program_command*>(&command))
        return program_reason(*program);
    auto* add = dynamic_cast<km::cm_add_object*>(&command);
    if (!add || !add->object)
        return {};
    if (!add->is_effective)
        return {false, "it is not effective"};
    auto* text = dynamic_cast<km::text_object*>(add->object);
    if (text && !text->may_replace() && text->exists(km::p_do) && !text->is_identical(km::p_do))
        return {true, "the text does not stand there yet"};
    if (!add->object->exists(km::p_do))
        return {true, "the object is not there yet"};
    if (!add->replace_if_existing)
        return {false, "the object is there, and is not to be replaced"};
    if (!add->replace_if_newer && add->object->is_newer())
        return {false, "what stands there is newer"};
    if (add->object->is_identical(km::p_do))
        return {false, "what stands there is identical"};
    if (auto* kept = dynamic_cast<km::km_kept_file*>(add->object); kept && kept->leaves_present())
        return {true, "what stands there was changed, and stays; the package's version is laid "
                      "beside it"};
    return {true, "what stands there differs"};
}

void explain_tree(km::cm_composite_command& tree, int depth, bool runs_above,
                  const km::variable_list* chain, outcome& result) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto& command = static_cast<km::cm_command&>(*all.nextElement());
        auto* inner = dynamic_cast<km::cm_composite_command*>(&command);
        explanation why = condition_of(command);
        const bool in_scope =
            static_cast<std::uint32_t>(command.scope) & command.package->effective_mask();
        if (why.runs && !in_scope)
            why = {false, "its scope is not that of the package"};
        if (why.runs && !inner) {
            const explanation of_object = object_reason(command);
            why.runs = of_object.runs;
            why.why += (why.why.empty() || of_object.why.empty() ? "" : "; ") + of_object.why;
        }
        if (!runs_above)
            why = {false, "the commands around it do not run"};
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        const json values = values_of(command.condition, chain);
        const std::string name = inner && command.caption.empty() ? "group"
                                 : inner ? std::string("group ") + command.caption.mbcs_str()
                                         : std::string(command.get_name().mbcs_str());
        result.data["commands"].push_back({{"depth", depth},
                                           {"name", name},
                                           {"runs", why.runs},
                                           {"why", why.why},
                                           {"condition", command.condition.mbcs_str()},
                                           {"values", values},
                                           {"scope", command.scope},
                                           {"executed", command.executed != 0},
                                           {"effective", !on || on->is_effective},
                                           {"shared", on && on->object && on->object->is_shared}});
        result.text += std::string(static_cast<size_t>(2 * depth), ' ') +
                       (why.runs ? "runs   " : "passed ") + name +
                       (why.why.empty() ? "" : ": " + why.why) +
                       (values.empty() ? "" : " (" + values_text(values) + ")") + "\n";
        if (inner)
            explain_tree(*inner, depth + 1, runs_above && why.runs, chain, result);
    }
}

} // namespace

void explain(const operation_request& request, worker_line& line, outcome& result) {
    session at(line, result);
    struct stat about {};
    const bool is_file = ::stat(request.target.c_str(), &about) == 0 && !S_ISDIR(about.st_mode);
    opened_package opened;
    std::unique_ptr<km::cm_package> profile;
    if (is_file && !open_package(request.target, request.definitions, at.messages, opened, result))
        return;
    if (!at.open(access_kind::read, request.wait_seconds))
        return;
    if (!is_file) {
        package_id id;
        if (!find_package(at.store.catalog(), request.target, id, result))
            return;
        const auto* entry = at.store.find(id.name, id.version);
        profile = open_profile(entry->profile_name.mbcs_str(), at.messages, result);
        if (!profile)
            return;
    }
    km::cm_package& package = is_file ? *opened.package : *profile;
    at.take(package);
    package.operation_name = u"install";
    result.package = facts_of(at.id, at.entry());
    result.data["commands"] = json::array();
    const explanation whole = condition_of(package);
    explain_tree(package, 0, whole.runs, package.variables, result);
}

void who_uses(const std::string& path, outcome& result) {
    catalog_store store;
    if (!store.open(access_kind::read, 0, result))
        return;
    const std::string wanted = fs::path(path).lexically_normal().string();
    result.data["packages"] = json::array();
    for (const auto& one : find_packages(store.catalog(), "")) {
        km::spmessage messages;
        const auto package = open_profile(one.entry->profile_name.mbcs_str(), messages, result);
        if (!package)
            continue;
        each_leaf(*package, [&](km::cm_command& command) {
            auto* on = dynamic_cast<km::cm_add_object*>(&command);
            if (!on || !on->object || path_of(*on->object) != wanted)
                return;
            result.data["packages"].push_back({{"name", one.id.name},
                                               {"version", one.id.version},
                                               {"state", letters_of(one.entry)},
                                               {"shared", on->object->is_shared != 0}});
            result.text += one.id.text() + "  " + letters_of(one.entry) +
                           (on->object->is_shared ? "  (shared)\n" : "\n");
        });
    }
    if (result.data["packages"].empty() && !result.failed())
        result.fail(exit_not_found, "not_found", "No installed package holds " + wanted + ".");
}

namespace {

std::string behind(const std::string& line, const char* head) {
    const size_t length = std::string(head).size();
    if (line.compare(0, length, head) != 0)
        return "";
    const size_t at = line.find_first_not_of(' ', length);
    return at == std::string::npos ? "" : line.substr(at);
}

} // namespace

void history(const std::string& target, outcome& result) {
    outcome log_of;
    kmhost::log(target, log_of);
    if (log_of.failed()) {
        result = log_of;
        return;
    }
    result.data["operations"] = json::array();
    json one;
    const auto close = [&] {
        if (one.is_null())
            return;
        result.data["operations"].push_back(one);
        result.text += one.value("time", "") + "  " + one.value("operation", "") + "  " +
                       one.value("mode", "") + "  " + std::to_string(one.value("lines", 0)) +
                       " lines, " + std::to_string(one.value("failed", 0)) + " failed\n";
    };
    std::string line;
    for (const char c : log_of.text + "\n") {
        if (c != '\n') {
            line += c;
            continue;
        }
        if (const auto name = behind(line, "Software Package: \""); !name.empty()) {
            close();
            one = {
                {"package", name.substr(0, name.find_last_of('"'))}, {"lines", 0}, {"failed", 0}};
        } else if (!one.is_null()) {
            if (const auto text = behind(line, "Operation:"); !text.empty())
                one["operation"] = text;
            if (const auto text = behind(line, "Mode:"); !text.empty())
                one["mode"] = text == "(null)" ? "plain" : text;
            if (const auto text = behind(line, "Time:"); !text.empty())
                one["time"] = text;
            if (!line.empty() && line[0] == '[' && behind(line, "[output]").empty()) {
                one["lines"] = one["lines"].get<int>() + 1;
                if (line.find("failure]") != std::string::npos)
                    one["failed"] = one["failed"].get<int>() + 1;
            }
        }
        line.clear();
    }
    close();
}

} // namespace kmhost
