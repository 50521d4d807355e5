// offered_files: what the installed versions of a package brought
// no format
// invariant: only what a command had carried out counts
#include "offered_files.h"

#include "catalog.h"
#include "codec.h"
#include "decode_channel.h"
#include "file_channel.h"
#include "file_object.h"
#include "object_command.h"
#include "package.h"
#include "persistent_hashtable.h"
#include "status_words.h"
#include "unzipping_channel.h"
#include "variable_list.h"

#include <map>
#include <memory>
#include <sys/stat.h>
#include <vector>

namespace km {

namespace {

using offered = std::map<std::string, std::set<std::string>>;

// The tree of a profile. The engine's own reader would make it the package of the variables, in the
// middle of another one's operation; a profile holds its texts resolved, and needs none.
std::unique_ptr<cm_package> read_profile(const std::string& path) {
    file_input_channel file{pathname(path.c_str())};
    if (file.get_error())
        return nullptr;
    file.inhibit(1);
    unzipping_channel zip(&file);
    zip.inhibit(1);
    zip.set_skip_tail(0);
    if (!zip.get_next_entry())
        return nullptr;
    decode_channel channel(&zip);
    decoder stream(&channel);
    ustring signature;
    long build = 0;
    stream.decode_string_field(0, signature);
    stream.decode_long_field(3, build);
    const std::unique_ptr<variable_list> variables(stream.take_owned<variable_list>(1));
    std::unique_ptr<cm_package> package(stream.take_owned<cm_package>(2));
    return stream.get_status() ? nullptr : std::move(package);
}

void collect(cm_composite_command& tree, offered& all) {
    for (list_iterator at(tree.get_children()); at.hasMoreElements();) {
        auto* command = at.nextElement();
        if (auto* inner = dynamic_cast<cm_composite_command*>(command)) {
            collect(*inner, all);
        } else if (auto* add = dynamic_cast<cm_add_object*>(command)) {
            const auto* file = dynamic_cast<km_file*>(add->object);
            if (file && add->is_effective && add->get_executed())
                all[file->path_bytes()].insert(file->digest.mbcs_str());
        }
    }
}

bool is_installed(const cm_catalog_entry& entry) {
    return entry.last_action == a_execute &&
           (entry.cm_status == cs_committed || entry.cm_status == cs_committed_undoable ||
            entry.cm_status == cs_committed_undo_prepared);
}

std::vector<std::string> profiles_of(const cm_package& package) {
    std::vector<std::string> all;
    ustring name, version;
    set_package_name_and_version(const_cast<cm_package&>(package), name, version);
    for (Keyslist entries(*package.catalog); const auto* one = entries.next_entry();) {
        const auto* key = dynamic_cast<const cm_catalog_key*>(one->get_key());
        const auto* entry = dynamic_cast<const cm_catalog_entry*>(one->get_value());
        if (key && entry && key->name == name && is_installed(*entry))
            all.push_back(entry->profile_name.mbcs_str());
    }
    return all;
}

// A profile is never changed, but its name may be that of another one later.
std::string identity_of(const std::vector<std::string>& profiles) {
    std::string text;
    for (const auto& path : profiles) {
        struct stat about {};
        ::stat(path.c_str(), &about);
        text += path + " " + std::to_string(about.st_ino) + " " +
                std::to_string(about.st_ctim.tv_sec) + "." + std::to_string(about.st_ctim.tv_nsec) +
                "\n";
    }
    return text;
}

} // namespace

const std::set<std::string>& offered_digests(const cm_package& package, const std::string& path) {
    static const std::set<std::string> none;
    static std::string known_of;
    static offered known;
    if (!package.catalog)
        return none;
    const auto profiles = profiles_of(package);
    if (const auto identity = identity_of(profiles); identity != known_of) {
        known.clear();
        known_of = identity;
        for (const auto& profile : profiles)
            if (const auto tree = read_profile(profile))
                collect(*tree, known);
    }
    const auto at = known.find(path);
    return at == known.end() ? none : at->second;
}

} // namespace km
