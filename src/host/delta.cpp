// delta: a package that holds only what differs from another one
// format: docs/formats/package-file.md
// invariant: a file without data is marked, so that an install checks it before it changes anything
#include "delta.h"

#include "kept_file_object.h"
#include "messages.h"
#include "object_command.h"
#include "package_file.h"
#include "room.h"
#include "tree_walk.h"
#include "words.h"
#include "write_package.h"
#include "zip_file.h"

#include <filesystem>
#include <map>

namespace kmhost {

namespace {

km::km_file* file_of(km::cm_command& command) {
    auto* on = dynamic_cast<km::cm_add_object*>(&command);
    return on ? dynamic_cast<km::km_file*>(on->object) : nullptr;
}

// Checksums of the data entries of a package file, by entry name.
std::map<std::string, long> checksums_of(const std::string& path) {
    std::map<std::string, long> all;
    km::zip_file zip(path.c_str());
    if (!zip.readCEN())
        return all;
    const std::unique_ptr<km::vector> directory(zip.getCEN());
    for (int i = 0; i < directory->size(); ++i)
        if (const auto* entry = directory->at<km::zip_entry>(i); entry && entry->get_name())
            all[entry->get_name()] = entry->crc;
    return all;
}

// The base's files as records by path, as the engine asks for them.
km::vector* records_of(km::cm_package& base, const std::map<std::string, long>& sums) {
    auto* records = new km::vector;
    each_leaf(base, [&](km::cm_command& command) {
        const auto* file = file_of(command);
        const auto sum = file ? sums.find(km::data_entry_name(file->sequence)) : sums.end();
        if (sum == sums.end())
            return;
        auto* record = new km::zip_entry(file->path_bytes().c_str());
        record->crc = sum->second;
        records->push_back(record);
    });
    return records;
}

long mark_alike(km::cm_package& newer, km::cm_package& base,
                const std::map<std::string, long>& sums) {
    std::map<std::string, km::ustring> digests;
    each_leaf(base, [&](km::cm_command& command) {
        if (const auto* file = file_of(command))
            digests[file->path_bytes()] = file->digest;
    });
    long alike = 0;
    each_leaf(newer, [&](km::cm_command& command) {
        auto* file = file_of(command);
        if (!file || dynamic_cast<km::km_kept_file*>(file)) // its data are wanted in any case
            return;
        const auto sum = sums.find(km::data_entry_name(file->sequence));
        file->data_crc = sum == sums.end() ? -1 : sum->second;
        const auto same = digests.find(file->path_bytes());
        file->in_base = same != digests.end() && same->second == file->digest && file->size > 0;
        alike += file->in_base;
    });
    return alike;
}

} // namespace

void make_delta(const std::string& base_path, const std::string& newer_path,
                const std::string& output, outcome& result) {
    km::spmessage messages;
    opened_package base, newer;
    // Texts stay unresolved: what is written must mean the same on every machine.
    if (!open_package(base_path, {}, messages, base, result, 0) ||
        !open_package(newer_path, {}, messages, newer, result, 0))
        return;
    km::cm_package& package = *newer.package;
    package.central_directory = records_of(*base.package, checksums_of(base_path));
    const long alike = mark_alike(package, *base.package, checksums_of(newer_path));
    km::pathname base_name(base_path.c_str());
    const bool good = write_package(output, false, messages, result, [&](km::zipping_channel& zip) {
        return package.delta_save(&base_name, newer.reader.get(), &zip);
    });
    if (!good)
        return;
    std::error_code error;
    const auto size = std::filesystem::file_size(output, error);
    const package_id id{package.name.mbcs_str(), package.version.mbcs_str()};
    result.package = package_facts{id.name, id.version, "", ""};
    result.data["file"] = output;
    result.data["file_size"] = size;
    result.data["alike"] = alike;
    result.text = id.text() + ": " + std::to_string(alike) +
                  " files are as in the base and are left out; " + output + " (" +
                  km::in_words(size) + ")";
}

} // namespace kmhost
