// holders: which packages hold a path
// format: docs/formats/path-lists.md
// invariant: a list that is not whole is never believed
#include "holders.h"

#include "base/msg_supp.h"
#include "crc.h"
#include "durable.h"
#include "kept_variables.h"
#include "location.h"
#include "lookup.h"
#include "object_commands.h"
#include "package_file.h"
#include "tree_walk.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

// "KMPL", checksum of the rest, then the hashes; all little-endian.
constexpr char mark[] = {'K', 'M', 'P', 'L'};
constexpr size_t head_size = 8;

fs::path file_of(const package_id& id) {
    return fs::path(setting("working_dir")) / "paths" / id.text();
}

std::uint32_t checksum_of(const std::string& bytes) {
    km::CRC32 sum;
    sum.update(reinterpret_cast<const unsigned char*>(bytes.data()),
               static_cast<int>(bytes.size()));
    return static_cast<std::uint32_t>(sum.get_value());
}

using hashes = std::vector<std::uint64_t>;

bool read_list(const package_id& id, hashes& all) {
    std::ifstream in(file_of(id), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    if (bytes.size() < head_size || (bytes.size() - head_size) % sizeof(std::uint64_t) ||
        std::memcmp(bytes.data(), mark, sizeof mark) != 0)
        return false;
    std::uint32_t told = 0;
    std::memcpy(&told, bytes.data() + sizeof mark, sizeof told);
    const std::string body = bytes.substr(head_size);
    if (checksum_of(body) != told)
        return false;
    all.resize(body.size() / sizeof(std::uint64_t));
    if (!all.empty())
        std::memcpy(all.data(), body.data(), body.size());
    return true;
}

hashes paths_of(km::cm_package& tree) {
    hashes all;
    each_leaf(tree, [&all](km::cm_command& command) {
        auto* add = dynamic_cast<km::cm_add_object*>(&command);
        if (add && add->object && add->is_effective)
            all.push_back(hash_of_path(add->object->get_name().mbcs_str()));
    });
    return all;
}

hashes list_of(const listed_package& one) {
    hashes all;
    if (read_list(one.id, all))
        return all;
    km::spmessage messages;
    outcome ignored;
    const kept_variables of_the_package_at_work;
    const auto profile = open_profile(one.entry->profile_name.mbcs_str(), messages, ignored);
    if (!profile)
        return all;
    write_holders(one.id, *profile);
    return paths_of(*profile);
}

} // namespace

std::uint64_t hash_of_path(const std::string& path) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (const unsigned char c : path)
        hash = (hash ^ c) * 1099511628211ULL;
    return hash;
}

path_hashes held_by_others(const catalog_store& store, const package_id& but) {
    path_hashes all;
    for (const auto& one : find_packages(const_cast<catalog_store&>(store).catalog(), "")) {
        const bool is_left_out =
            one.id.name == but.name && (but.version.empty() || one.id.version == but.version);
        if (is_left_out || one.entry->last_action != km::a_execute)
            continue;
        const hashes of_one = list_of(one);
        all.insert(of_one.begin(), of_one.end());
    }
    return all;
}

void write_holders(const package_id& id, km::cm_package& tree) {
    const hashes all = paths_of(tree);
    std::string body(all.size() * sizeof(std::uint64_t), '\0');
    if (!all.empty()) // a package may take things out alone
        std::memcpy(body.data(), all.data(), body.size());
    const std::uint32_t sum = checksum_of(body);
    std::error_code error;
    const fs::path path = file_of(id);
    fs::create_directories(path.parent_path(), error);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(mark, sizeof mark);
    out.write(reinterpret_cast<const char*>(&sum), sizeof sum);
    out.write(body.data(), static_cast<std::streamsize>(body.size()));
    out.close();
    if (!out)
        fs::remove(path, error);
}

void forget_holders(const package_id& id) {
    std::error_code error;
    if (fs::remove(file_of(id), error)) // for good: an old list must not be believed later
        km::sync_directory(km::pathname(file_of(id).parent_path().c_str()));
}

void drop_holders(const package_id& id) {
    std::error_code error;
    fs::remove(file_of(id), error);
}

long keep_what_others_hold(const catalog_store& store, const package_id& id, km::cm_package& tree) {
    const auto held = held_by_others(store, id);
    if (held.empty())
        return 0;
    long kept = 0;
    each_leaf(tree, [&](km::cm_command& command) {
        auto* add = dynamic_cast<km::km_add_command*>(&command);
        if (!add || !add->object || !add->is_effective ||
            !held.count(hash_of_path(add->object->get_name().mbcs_str())))
            return;
        add->stays_for_others = true;
        ++kept;
    });
    return kept;
}

void keep_and_tell_what_others_hold(const catalog_store& store, const package_id& id,
                                    km::cm_package& tree, outcome& result) {
    if (const long count = keep_what_others_hold(store, id, tree))
        result.info("held", std::to_string(count) +
                                " paths stay, because other packages hold them, too "
                                "('kmctl who-uses PATH' tells which).");
}

} // namespace kmhost
