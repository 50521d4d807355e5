// upgrade_record: what an upgrade took out, so that its undo brings it back
// format: docs/formats/upgrade-record.md
// invariants: a version leaves the catalog only when its record is on disk; a record goes only when
// nothing can be brought back by it any more
#include "upgrade_record.h"

#include "codec.h"
#include "decode_channel.h"
#include "durable.h"
#include "encode_channel.h"
#include "file_channel.h"
#include "holders.h"
#include "intent.h"
#include "json_text.h"
#include "kill_point.h"
#include "location.h"
#include "made_directories.h"
#include "package.h"
#include "program_files.h"
#include "target_root.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace kmhost {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string records_directory() { return setting("working_dir") + "/upgrade"; }
fs::path directory_of(const package_id& id) { return fs::path(records_directory()) / id.text(); }

bool fail(outcome& result, const std::string& what, const std::string& why) {
    result.fail(exit_failed, "upgrade", what + ": " + why + ".");
    return false;
}

bool write_entry(const fs::path& path, const km::cm_catalog_entry& entry) {
    km::file_output_channel out(km::pathname(path.c_str()), 0);
    km::encode_channel channel(&out);
    km::encoder to(&channel);
    to.encode_object(&entry);
    channel.flush();
    return !to.get_status() && !channel.get_error() && !out.get_error();
}

std::unique_ptr<km::cm_catalog_entry> read_entry(const fs::path& path) {
    km::file_input_channel in(km::pathname(path.c_str()));
    if (in.get_error())
        return nullptr;
    in.inhibit(1);
    km::decode_channel channel(&in);
    km::decoder from(&channel);
    std::unique_ptr<km::cm_catalog_entry> entry(from.take_owned_object<km::cm_catalog_entry>());
    return from.get_status() ? nullptr : std::move(entry);
}

// Profiles and backups are never changed in place, so that a second name keeps their content.
bool keep_file(const fs::path& from, const fs::path& to) {
    std::error_code error;
    if (from.empty() || !fs::exists(from, error))
        return true;
    fs::remove(to, error);
    fs::create_hard_link(from, to, error);
    if (error)
        fs::copy_file(from, to, error);
    return !error;
}

json counts_of(const catalog_store& store, const package_id& id) {
    json counts = json::array();
    auto* table = const_cast<catalog_store&>(store).counts();
    const km::Hashtable* all = table ? table->get_table() : nullptr;
    if (!all)
        return counts;
    km::Keyslist objects(*all);
    while (km::HashtableEntry* one = objects.next_entry()) {
        const auto* object = dynamic_cast<const km::ustring*>(one->get_key());
        const auto* counter = dynamic_cast<const km::counter*>(one->get_value());
        const int count = counter ? counter->get_counter(km::ustring(id.name.c_str()),
                                                         km::ustring(id.version.c_str()))
                                  : 0;
        if (object && count)
            counts.push_back({object->mbcs_str(), count});
    }
    return counts;
}

bool keep_version(const fs::path& directory, size_t index, const package_id& id,
                  const catalog_store& store, json& told) {
    const auto* entry = store.find(id.name, id.version);
    if (!entry)
        return true; // dropped already, in an earlier run
    const std::string stem = std::to_string(index);
    told = {{"name", id.name},
            {"version", id.version},
            {"counts", counts_of(store, id)},
            {"directories", km::private_directories_of(id.name, id.version)}};
    return write_entry(directory / (stem + ".entry"), *entry) &&
           keep_file(entry->profile_name.mbcs_str(), directory / (stem + ".profile")) &&
           keep_file(entry->undo_package_name.mbcs_str(), directory / (stem + ".undo"));
}

json read_record(const fs::path& directory) {
    std::ifstream in(directory / "record.json", std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    const json object = json_of(text);
    return object.is_object() && object.contains("old") ? object : json();
}

} // namespace

bool write_upgrade(const upgrade_record& record, const catalog_store& store, outcome& result) {
    const fs::path directory = directory_of(record.id);
    std::error_code error;
    if (!km::make_directories_durably(km::pathname(directory.c_str())))
        error.assign(errno, std::generic_category());
    json object = {{"old", json::array()}, {"kept", record.kept}};
    for (size_t i = 0; i < record.old.size() && !error; ++i) {
        json told;
        if (!keep_version(directory, i, record.old[i], store, told))
            return fail(result, "The record of " + record.old[i].text() + " cannot be written",
                        std::strerror(errno));
        object["old"].push_back(told);
    }
    const std::string text = json_text(object, 1) + "\n";
    const std::string path = (directory / "record.json").string();
    if (error || !km::replace_durably(km::pathname(path.c_str()), 0600, [&text](int out) {
            return km::write_fully(out, text.data(), text.size());
        }))
        return fail(result, path + " cannot be written",
                    error ? error.message() : std::strerror(errno));
    return true;
}

bool has_upgrade(const package_id& id, upgrade_record& record) {
    const json object = read_record(directory_of(id));
    if (!object.is_object())
        return false;
    record.id = id;
    for (const auto& one : object["old"])
        if (one.is_object())
            record.old.push_back({one.value("name", ""), one.value("version", "")});
    for (const auto& one : object.value("kept", json::array()))
        if (one.is_string())
            record.kept.push_back(one.get<std::string>());
    return true;
}

namespace {

std::vector<std::string> directories_of(const json& told) {
    std::vector<std::string> all;
    for (const auto& one : told.value("directories", json::array()))
        if (one.is_string())
            all.push_back(one.get<std::string>());
    return all;
}

// What programs of the older versions had brought, unless it is theirs again.
void remove_private_directories(const json& record) {
    for (const auto& told : record.value("old", json::array())) {
        if (!told.is_object())
            continue;
        const auto noted =
            km::private_directories_of(told.value("name", ""), told.value("version", ""));
        std::error_code error;
        for (const auto& one : directories_of(told))
            if (one.find("corequisites") != std::string::npos &&
                std::find(noted.begin(), noted.end(), one) == noted.end())
                fs::remove_all(one, error);
    }
}

} // namespace

void forget_upgrade(const package_id& id) {
    const fs::path directory = directory_of(id);
    std::error_code error;
    if (const json record = read_record(directory); record.is_object())
        remove_private_directories(record);
    fs::remove(directory / "record.json", error); // without it the rest means nothing
    fs::remove_all(directory, error);
}

bool drop_old_versions(const upgrade_record& record, catalog_store& store, outcome& result) {
    for (const auto& id : record.old) {
        if (!store.find(id.name, id.version))
            continue;
        km::cm_package gone;
        gone.name = km::ustring(id.name.c_str());
        gone.version = km::ustring(id.version.c_str());
        gone.catalog = &store.catalog();
        gone.catalog_key = km::cm_catalog_key(gone.name, gone.version);
        KM_KILL_POINT("upgrade.before_drop");
        if (!km::forget_private_directories(id.name, id.version)) // they wait in the record
            return fail(result,
                        "The notes of the directories of " + id.text() + " cannot be put aside",
                        std::strerror(errno));
        if (!gone.find_catalog_entry(0) ||
            gone.delete_package_reference(1, 0) != km::cm_command::success)
            return fail(result, id.text() + " cannot be taken out of the catalog",
                        "its entry or its profile cannot be removed");
        km::hand_over_made_directories(id.name, id.version);
        forget_holders(id);
    }
    store.prune_counts();
    return true;
}

namespace {

bool restore_version(const fs::path& directory, size_t index, const json& told,
                     catalog_store& store) {
    const package_id id{told.value("name", ""), told.value("version", "")};
    if (id.name.empty())
        return true;
    for (const auto& one : directories_of(told))
        if (!km::note_private_directory(id.name, id.version, one))
            return false;
    if (store.find(id.name, id.version))
        return true;
    const std::string stem = std::to_string(index);
    const auto entry = read_entry(directory / (stem + ".entry"));
    if (!entry)
        return false;
    if (!keep_file(directory / (stem + ".profile"), entry->profile_name.mbcs_str()) ||
        !keep_file(directory / (stem + ".undo"), entry->undo_package_name.mbcs_str()))
        return false;
    km::sync_directory(entry->profile_name.get_parent());
    for (const auto& count : told.value("counts", json::array()))
        if (count.is_array() && count.size() == 2)
            store.counts()->set_counter(km::ustring(count[0].get<std::string>().c_str()),
                                        km::ustring(id.name.c_str()),
                                        km::ustring(id.version.c_str()), count[1].get<int>());
    if (!store.counts()->commit())
        return false;
    KM_KILL_POINT("upgrade.before_restore");
    return store.catalog().update(new km::cm_catalog_key(km::ustring(id.name.c_str()),
                                                         km::ustring(id.version.c_str())),
                                  entry->clone()) &&
           store.flush();
}

} // namespace

void restore_after_undo(catalog_store& store, const package_id& id, outcome& result) {
    const fs::path directory = directory_of(id);
    const json object = read_record(directory);
    if (!object.is_object())
        return;
    std::string names;
    for (size_t i = 0; i < object["old"].size(); ++i) {
        const json& told = object["old"][i];
        if (!told.is_object())
            continue;
        if (!restore_version(directory, i, told, store)) {
            fail(result,
                 "The older version " + told.value("name", "") + "^" + told.value("version", "") +
                     " cannot be put back into the catalog",
                 "its record " + directory.string() + " cannot be read or written");
            return;
        }
        names += " " + told.value("name", "") + "^" + told.value("version", "");
    }
    for (const auto& one : object.value("kept", json::array()))
        if (one.is_string())
            km::remove_name_unseen(one.get<std::string>());
    forget_upgrade(id);
    if (!names.empty())
        result.info("restored", "Installed again:" + names + ".");
}

namespace {
// A record whose upgrade never began, or was taken back: the older versions stand as before.
bool came_to_nothing(const catalog_store& store, const upgrade_record& record) {
    const auto cut = intent_of(record.id);
    return !(cut && cut->command == "upgrade") &&
           std::all_of(record.old.begin(), record.old.end(), [&store](const package_id& old) {
               return old.name.empty() || store.find(old.name, old.version);
           });
}

void forget_with_kept(const upgrade_record& record) {
    for (const auto& path : record.kept)
        km::remove_name_unseen(path);
    forget_upgrade(record.id);
}
} // namespace

void heal_upgrades(catalog_store& store, outcome& result) {
    std::error_code error;
    std::vector<package_id> gone, halves;
    std::vector<upgrade_record> idle;
    for (const auto& one : fs::directory_iterator(records_directory(), error)) {
        const package_id id = parse_id(one.path().filename().string());
        upgrade_record record;
        if (!fs::exists(one.path() / "record.json", error) && !error) // written last, goes first
            halves.push_back(id);
        else if (store.find(id.name, id.version) || !has_upgrade(id, record))
            continue;
        else if (came_to_nothing(store, record))
            idle.push_back(record);
        else if (std::any_of(record.old.begin(), record.old.end(), [&store](const auto& old) {
                     return !old.name.empty() && !store.find(old.name, old.version);
                 }))
            gone.push_back(id);
    }
    for (const auto& id : halves)
        forget_upgrade(id);
    for (const auto& record : idle)
        forget_with_kept(record);
    for (const auto& id : gone)
        restore_after_undo(store, id, result);
}

} // namespace kmhost
