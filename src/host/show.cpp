// show: what a package holds, from its file or from its profile
// no format
// invariant: nothing is installed or changed
#include "base/msg_supp.h"
#include "catalog_store.h"
#include "chain_names.h"
#include "hard_link_object.h"
#include "link_object.h"
#include "location.h"
#include "lookup.h"
#include "object_command.h"
#include "object_words.h"
#include "package_file.h"
#include "program_command.h"
#include "tree_walk.h"
#include "queries.h"
#include "room.h"
#include "variable_builder.h"

#include <cstdio>
#include <ctime>
#include <map>
#include <sys/stat.h>
#include <typeinfo>
#include <unistd.h>

namespace kmhost {

using nlohmann::json;

namespace {

std::string kind_of(const km::cm_command& command) {
    const char* name = command.codable_name();
    const std::string text = name ? name : "";
    return text.substr(text.find_last_of('.') + 1);
}

std::string mode_text(const km::km_object& object) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(object.mode));
    return text;
}

json object_json(const km::cm_object& object) {
    json one = object_keys(const_cast<km::cm_object&>(object));
    one["shared"] = object.is_shared != 0;
    if (one.contains("kind"))
        one["type"] = one["kind"];
    if (const auto* of = dynamic_cast<const km::km_object*>(&object)) {
        if (!dynamic_cast<const km::km_hard_link*>(of)) { // its file has them
            one["mode"] = mode_text(*of);
            one["size"] = of->size;
        }
        one["type"] = of->kind();
        if (const auto* link = dynamic_cast<const km::km_link*>(of))
            one["target"] = link->target.mbcs_str();
        if (const auto* name = dynamic_cast<const km::km_hard_link*>(of))
            one["target"] = name->target.mbcs_str();
        if (!of->digest.empty())
            one["sha256"] = of->digest.mbcs_str();
    }
    return one;
}

const km::cm_object* object_of(const km::cm_command& command) {
    const auto* on = dynamic_cast<const km::cm_object_command*>(&command);
    return on ? on->object : nullptr;
}

struct totals {
    long objects = 0;
    unsigned long long bytes = 0;
};

template <class Visit>
void walk(const km::cm_composite_command& tree, int depth, const Visit& visit) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
        const auto& command = static_cast<const km::cm_command&>(*all.nextElement());
        visit(command, depth);
        if (const auto* inner = dynamic_cast<const km::cm_composite_command*>(&command))
            walk(*inner, depth + 1, visit);
    }
}

// The programs of a command, with the word of the operation that runs them.
json programs_json(const km::program_command& command) {
    static const char* const words[] = {"install", "remove", "undo", "commit", "verify"};
    json all = json::object();
    for (size_t i = 0; i < command.programs.size(); ++i)
        if (const auto& one = command.programs[i]; !one.path.empty())
            all[words[i]] = std::string(one.path.mbcs_str()) + (one.arguments.empty() ? "" : " ") +
                            one.arguments.mbcs_str();
    return all;
}

// The paths of the files that come with it.
json corequisites_json(const km::program_command& command) {
    json all = json::array();
    if (command.files.tree())
        each_placed_object(*command.files.tree(),
                           [&all](const km::km_object& file) { all.push_back(file.path_bytes()); });
    return all;
}

void show_tree(const km::cm_package& package, outcome& result) {
    result.data["tree"] = json::array();
    walk(package, 0, [&result](const km::cm_command& command, int depth) {
        json one = {{"depth", depth}, {"command", kind_of(command)}};
        std::string line(static_cast<size_t>(2 * depth), ' ');
        line += kind_of(command);
        if (const auto* object = object_of(command)) {
            one["path"] = object_json(*object)["path"];
            line += std::string(" ") + const_cast<km::cm_object*>(object)->get_name().mbcs_str();
        }
        if (const auto* program = dynamic_cast<const km::program_command*>(&command)) {
            one["programs"] = programs_json(*program);
            for (const auto& [word, text] : one["programs"].items())
                line += "  " + word + ": " + text.get<std::string>();
            const json files = corequisites_json(*program);
            if (!files.empty()) {
                one["corequisite_files"] = files;
                line += "  with " + std::to_string(files.size()) +
                        (files.size() == 1 ? " file" : " files");
            }
        }
        if (!command.caption.empty()) {
            one["caption"] = command.caption.mbcs_str();
            line += std::string("  \"") + command.caption.mbcs_str() + "\"";
        }
        if (!command.condition.empty()) {
            one["condition"] = command.condition.mbcs_str();
            line += std::string("  if ") + command.condition.mbcs_str();
        }
        result.data["tree"].push_back(one);
        result.text += line + "\n";
    });
}

void show_files(const km::cm_package& package, outcome& result) {
    result.data["files"] = json::array();
    walk(package, 0, [&result](const km::cm_command& command, int) {
        const auto* object = object_of(command);
        if (!object)
            return;
        const json one = object_json(*object);
        result.data["files"].push_back(one);
        char size[32];
        std::snprintf(size, sizeof size, "%12ld", one.value("size", 0L));
        result.text += one.value("mode", "----") + " " + size + "  " +
                       const_cast<km::cm_object*>(object)->get_name().mbcs_str();
        if (one.contains("target"))
            result.text +=
                (one["type"] == "link" ? " -> " : " => ") + one["target"].get<std::string>();
        result.text += one["shared"].get<bool>() ? "  (shared)\n" : "\n";
    });
}

// The names of all lists of a chain; the first list that knows a name wins.
void show_chain(const km::variable_list* chain, outcome& result) {
    struct known {
        std::string value, list;
    };
    std::map<std::string, known> all;
    for (const auto* list = chain; list; list = list->get_next()) {
        km::Keyslist names(*list);
        while (km::HashtableEntry* one = names.next_entry()) {
            const auto* key = dynamic_cast<const km::ustring*>(one->get_key());
            const auto* value = dynamic_cast<const km::ustring*>(one->get_value());
            if (key && value)
                all.try_emplace(key->mbcs_str(), known{value->mbcs_str(), list_name(*list)});
        }
    }
    result.data["variables"] = json::array();
    for (const auto& [name, what] : all) {
        result.data["variables"].push_back(
            {{"name", name}, {"value", what.value}, {"list", what.list}});
        result.text += name + "=" + what.value + "  (" + what.list + ")\n";
    }
}

void show_summary(const km::cm_package& package, outcome& result) {
    totals sum;
    walk(package, 0, [&sum](const km::cm_command& command, int) {
        if (object_of(command)) {
            ++sum.objects;
            sum.bytes +=
                static_cast<unsigned long long>(const_cast<km::cm_command&>(command).get_size());
        }
    });
    char created[32] = "";
    std::tm local{};
    if (package.creation_time > 0 && ::localtime_r(&package.creation_time, &local))
        std::strftime(created, sizeof created, "%Y-%m-%d %H:%M:%S", &local);
    const std::pair<const char*, std::string> rows[] = {
        {"name", package.name.mbcs_str()},
        {"version", package.version.mbcs_str()},
        {"title", package.title.mbcs_str()},
        {"description", package.description.mbcs_str()},
        {"copyright", package.copyright.mbcs_str()},
        {"dependency", package.dependency.mbcs_str()},
        {"created", created},
        {"objects", std::to_string(sum.objects)},
        {"data", km::in_words(sum.bytes)},
    };
    json attributes = json::object();
    for (const auto& [name, value] : rows) {
        attributes[name] = value;
        if (!value.empty())
            result.text += std::string(name) + ":" +
                           std::string(13 - std::string(name).size(), ' ') + value + "\n";
    }
    attributes["undoable"] = package.undoable;
    attributes["committable"] = package.committable;
    attributes["bytes"] = sum.bytes;
    result.data["attributes"] = attributes;
}

void show_package(const km::cm_package& package, show_part part, outcome& result) {
    switch (part) {
    case show_part::tree:
        return show_tree(package, result);
    case show_part::files:
        return show_files(package, result);
    case show_part::variables:
        return show_chain(package.variables, result);
    default:
        return show_summary(package, result);
    }
}

} // namespace

void show(const std::string& target, show_part part, outcome& result) {
    km::spmessage messages;
    struct stat about {};
    const bool is_file = ::stat(target.c_str(), &about) == 0 && !S_ISDIR(about.st_mode);
    if (is_file || target.find('/') != std::string::npos) {
        opened_package opened;
        if (!open_package(target, {}, messages, opened, result))
            return;
        const km::cm_package& package = *opened.package;
        result.package = package_facts{package.name.mbcs_str(), package.version.mbcs_str(), "", ""};
        show_package(package, part, result);
        return;
    }
    catalog_store store;
    package_id id;
    if (!store.open(access_kind::read, 0, result) ||
        !find_package(store.catalog(), target, id, result))
        return;
    const auto* entry = store.find(id.name, id.version);
    result.package = facts_of(id, entry);
    if (const auto package = open_profile(entry->profile_name.mbcs_str(), messages, result)) {
        if (part == show_part::summary)
            result.text = "state:        " + letters_of(entry) + "  " + state_words(entry) + "\n";
        show_package(*package, part, result);
    }
}

void variables(outcome& result) {
    show_chain(km::variable_list_builder::get_decoder_variables(nullptr, nullptr), result);
}

} // namespace kmhost
