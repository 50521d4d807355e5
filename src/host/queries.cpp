// queries: what a state holds
// no format
// invariant: nothing but config_set and a repair changes anything
#include "queries.h"

#include "base_configuration.h"
#include "catalog_store.h"
#include "command.h"
#include "location.h"
#include "lookup.h"
#include "win_profile.h"
#include "words.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kmhost {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string padded(std::string text, size_t width) {
    size_t columns = 0; // characters, not bytes
    for (const unsigned char c : text)
        columns += (c & 0xC0) != 0x80;
    return columns < width ? text + std::string(width - columns, ' ') : text;
}

std::string time_words(long seconds) {
    if (seconds <= 0)
        return "";
    char text[32] = "";
    const std::time_t when = seconds;
    std::tm local{};
    if (::localtime_r(&when, &local))
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

json entry_json(const listed_package& one) {
    return {{"name", one.id.name},
            {"version", one.id.version},
            {"state", letters_of(one.entry)},
            {"state_text", state_words(one.id, one.entry)},
            {"result", km::result_text(one.entry->entry_operation_result)},
            {"installed", one.entry->installed_filepack_time}};
}

bool open_for_reading(catalog_store& store, outcome& result) {
    return store.open(access_kind::read, 0, result);
}

} // namespace

void list(const std::string& pattern, outcome& result) {
    catalog_store store;
    if (!open_for_reading(store, result))
        return;
    result.data["packages"] = json::array();
    const auto all = find_packages(store.catalog(), pattern);
    size_t names = 4, versions = 7;
    for (const auto& one : all) {
        names = std::max(names, one.id.name.size());
        versions = std::max(versions, one.id.version.size());
    }
    for (const auto& one : all) {
        result.data["packages"].push_back(entry_json(one));
        result.text += padded(one.id.name, names) + "  " + padded(one.id.version, versions) + "  " +
                       letters_of(one.entry) + "  " + state_words(one.id, one.entry) + "\n";
    }
    if (all.empty())
        result.info("empty", pattern.empty() ? "No package is installed."
                                             : "No package matches " + pattern + ".");
}

void status(const std::string& target, outcome& result) {
    catalog_store store;
    package_id id;
    if (!open_for_reading(store, result) || !find_package(store.catalog(), target, id, result))
        return;
    const auto& entry = *store.find(id.name, id.version);
    result.package = facts_of(id, &entry);
    result.data["state_text"] = state_words(id, &entry);
    result.data["changed"] = entry.installed_filepack_time;
    result.data["profile"] = entry.profile_name.mbcs_str();
    const std::string next = next_steps(id, entry);
    result.data["advice"] = next;
    result.text = id.text() + "\n" + letters_of(&entry) + "  " + state_words(id, &entry) + "\n" +
                  "last result: " + km::result_text(entry.entry_operation_result) + "\n" +
                  "last change: " + time_words(entry.installed_filepack_time) + "\n" +
                  "profile:     " + entry.profile_name.mbcs_str() + "\n" +
                  (next.empty() ? "" : next + "\n");
}

namespace {

// Of packages that are gone, or of several versions: the one that something was done with last.
package_id latest_log(const fs::path& directory, const package_id& of) {
    package_id found = of;
    fs::file_time_type last{};
    std::error_code error;
    for (const auto& one : fs::directory_iterator(directory, error)) {
        const package_id id = parse_id(one.path().stem().string());
        const auto written = one.last_write_time(error);
        if (id.name == of.name && !id.version.empty() && one.path().extension() == ".log" &&
            (found.version.empty() || written > last)) {
            found = id;
            last = written;
        }
    }
    return found;
}

} // namespace

void log(const std::string& target, outcome& result) {
    package_id id = parse_id(target);
    catalog_store store;
    if (!open_for_reading(store, result))
        return;
    const fs::path directory = fs::path(setting("product_dir")) / "log";
    if (id.version.empty()) {
        outcome ignored;
        package_id known;
        id = find_package(store.catalog(), target, known, ignored) ? known
                                                                   : latest_log(directory, id);
    }
    const fs::path file = directory / (id.text() + ".log");
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        result.fail(exit_not_found, "not_found",
                    "There is no log of " + id.text() + " (" + file.string() + ").");
        return;
    }
    result.text.assign(std::istreambuf_iterator<char>(in), {});
    result.data["file"] = file.string();
    result.data["log"] = result.text;
}

namespace {

struct config_line {
    std::string section, key, value;
};

std::vector<config_line> read_settings(const km::pathname& file) {
    std::vector<config_line> all;
    km::win_profile profile(file);
    km::vector sections;
    profile.get_section_names(sections);
    for (int i = 0; i < sections.size(); ++i) {
        const auto& section = *sections.at<km::ustring>(i);
        km::vector lines;
        profile.get_section_contents(section, lines);
        for (int k = 0; k < lines.size(); ++k) {
            const std::string line = lines.at<km::ustring>(k)->mbcs_str();
            const size_t at = line.find('=');
            if (at != std::string::npos && line[0] != ';' && line[0] != '#')
                all.push_back({section.mbcs_str(), line.substr(0, at), line.substr(at + 1)});
        }
    }
    return all;
}

km::pathname settings_file() {
    setting("product_dir"); // makes the file with its defaults where there is none
    return km::get_configuration_file();
}

} // namespace

void config_list(outcome& result) {
    const km::pathname file = settings_file();
    result.data["file"] = file.mbcs_str();
    result.data["settings"] = json::array();
    result.text = std::string("# ") + file.mbcs_str() + "\n";
    std::string section;
    for (const auto& one : read_settings(file)) {
        result.data["settings"].push_back(
            {{"section", one.section}, {"key", one.key}, {"value", one.value}});
        if (one.section != section)
            result.text += "[" + (section = one.section) + "]\n";
        result.text += one.key + "=" + one.value + "\n";
    }
}

void config_get(const std::string& key, outcome& result) {
    const std::string value = setting(key.c_str());
    const auto all = read_settings(settings_file());
    const bool known = !value.empty() || std::any_of(all.begin(), all.end(), [&](const auto& one) {
        return one.key == key;
    });
    if (!known) {
        result.fail(exit_not_found, "not_found",
                    "The setting " + key +
                        " is not set. 'kmctl config list' shows those that are.");
        return;
    }
    result.text = value;
    result.data["key"] = key;
    result.data["value"] = value;
}

void config_set(const std::string& key, const std::string& value, outcome& result) {
    if (key.empty() || key.find_first_of("=[]*?\r\n \t;#") != std::string::npos ||
        value.find_first_of("\r\n") != std::string::npos) {
        result.fail(exit_usage, "usage", "A setting is NAME VALUE, both on one line.");
        return;
    }
    km::win_profile profile(settings_file());
    const km::ustring section = km::base_configuration::get_current_section();
    profile.create_item(km::ustring((key + "=" + value).c_str()), section, 1);
    if (!profile.commit_changes()) {
        result.fail(exit_failed, "settings",
                    std::string("The settings ") + profile.get_path().mbcs_str() +
                        " cannot be written.");
        return;
    }
    result.data["key"] = key;
    result.data["value"] = value;
    result.text = key + "=" + value;
}

} // namespace kmhost
