// reboot: packages that wait until the machine was booted again
// format: docs/formats/reboot-notes.md
// invariant: a note is written before the operation's outcome is told
#include "reboot.h"

#include "booting_list.h"
#include "command.h"
#include "durable.h"
#include "engine_types.h"
#include "location.h"
#include "restart.h"
#include "tree_walk.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

std::string first_line(const std::string& file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

fs::path note_of(const package_id& id) {
    return fs::path(setting("working_dir")) / "reboot" / id.text();
}

struct note {
    std::string boot;
    bool wanted = false;
    long boots = 0;
};

// A note of one line is one of an older version: it just waits.
note read_note(const package_id& id) {
    std::ifstream in(note_of(id));
    note found;
    std::string word;
    if (!std::getline(in, found.boot) || found.boot.empty())
        return note();
    in >> word >> found.boots;
    found.wanted = word == "wanted";
    found.boots = std::clamp(found.boots, 1L, 1000000L);
    return found;
}

bool write_note(const package_id& id, const note& what) {
    const std::string text =
        what.boot + "\n" + (what.wanted ? "wanted " : "waits ") + std::to_string(what.boots) + "\n";
    const fs::path file = note_of(id);
    km::make_directories_durably(km::pathname(file.parent_path().c_str()));
    return km::replace_durably(km::pathname(file.c_str()), 0600, [&text](int out) {
        return km::write_fully(out, text.data(), text.size());
    });
}

km::ustring wide(const std::string& text) { return km::ustring(text.c_str()); }

} // namespace

std::string boot_id() {
    const char* file = std::getenv("KMCTL_BOOT_ID_FILE");
    return first_line(file && *file ? file : "/proc/sys/kernel/random/boot_id");
}

reboot_wish wish_of(km::cm_package& package) {
    reboot_wish wish;
    each_leaf(package, [&wish](km::cm_command& leaf) {
        const auto* restart = dynamic_cast<km::restart*>(&leaf);
        if (!restart)
            return;
        if (restart->timeout >= 0 && (wish.timeout < 0 || restart->timeout < wish.timeout))
            wish.timeout = restart->timeout;
        wish.force |= restart->force_restart ? 1 : 0;
    });
    return wish;
}

bool wait_for_reboot(const package_id& id, const reboot_wish& wish) {
    const std::string now = boot_id();
    const auto before = read_note(id);
    const bool same_boot = before.boot == now;
    const note fresh{now, wish.wanted || (same_boot && before.wanted),
                     before.boot.empty() ? 1 : before.boots + (same_boot ? 0 : 1)};
    const bool noted = !now.empty() && write_note(id, fresh);
    const int why = errno;
    const bool listed = km::is_in_booting_list(wide(id.name), wide(id.version), nullptr, nullptr);
    if (listed && !same_boot) // its time begins anew
        km::handle_booting_list(wide(id.name), wide(id.version), 0, -1, 0);
    long timeout = wish.timeout;
    int force = wish.force;
    km::overwrite_reboot_parameters(&force, &timeout);
    km::handle_booting_list(wide(id.name), wide(id.version), 1, timeout, force);
    errno = why;
    return noted;
}

void forget_reboot(const package_id& id) {
    std::error_code error;
    if (!fs::remove(note_of(id), error))
        return;
    if (km::is_in_booting_list(wide(id.name), wide(id.version), nullptr, nullptr))
        km::handle_booting_list(wide(id.name), wide(id.version), 0, -1, 0);
}

bool is_noted_for_reboot(const package_id& id) {
    std::error_code error;
    return fs::exists(note_of(id), error);
}

bool was_booted_since(const package_id& id) {
    const std::string then = read_note(id).boot, now = boot_id();
    return !then.empty() && !now.empty() && then != now;
}

bool wants_reboot(const package_id& id) {
    const auto found = read_note(id);
    return found.wanted && !found.boot.empty() && found.boot == boot_id();
}

long boots_asked_for(const package_id& id) { return read_note(id).boots; }

std::vector<package_id> boot_list() {
    std::vector<package_id> all;
    std::ifstream in(km::get_booting_file().mbcs_str());
    for (std::string line; std::getline(in, line);) {
        const std::string text = line.substr(0, line.find(" # "));
        if (text.find('^') != std::string::npos)
            all.push_back(parse_id(text));
    }
    return all;
}

bool waits_for_reboot(const km::cm_catalog_entry& entry) {
    return entry.current_result >= km::cm_command::success_reboot_now &&
           entry.current_result <= km::cm_command::success_in_a_reboot;
}

const char* command_behind_reboot(const km::cm_catalog_entry& entry) {
    switch (entry.operation_in_progress == km::o_none ? entry.operation_requested
                                                      : entry.operation_in_progress) {
    case km::o_undo:
    case km::o_undo_ep:
        return "undo";
    case km::o_commit:
        return "commit";
    case km::o_accept:
        return "accept";
    default:
        return entry.last_action == km::a_reverse ? "remove" : "install";
    }
}

} // namespace kmhost
