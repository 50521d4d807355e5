// reboot: packages that wait until the machine was booted again
// format: docs/formats/reboot-notes.md
// invariant: a note is written before the operation's outcome is told
#include "reboot.h"

#include "booting_list.h"
#include "command.h"
#include "durable.h"
#include "engine_types.h"
#include "location.h"

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

km::ustring wide(const std::string& text) { return km::ustring(text.c_str()); }

} // namespace

std::string boot_id() {
    const char* file = std::getenv("KMCTL_BOOT_ID_FILE");
    return first_line(file && *file ? file : "/proc/sys/kernel/random/boot_id");
}

bool wait_for_reboot(const package_id& id) {
    std::error_code error;
    const fs::path note = note_of(id);
    fs::create_directories(note.parent_path(), error);
    const std::string fresh = note.string() + ".new";
    const std::string now = boot_id();
    std::ofstream out(fresh, std::ios::trunc);
    out << now << "\n";
    out.close();
    const bool noted = !now.empty() && out &&
                       km::rename_durably(km::pathname(fresh.c_str()), km::pathname(note.c_str()));
    const int why = errno;
    long timeout = -1;
    int force = 0;
    km::is_in_booting_list(wide(id.name), wide(id.version), nullptr, nullptr);
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
    const std::string then = first_line(note_of(id).string()), now = boot_id();
    return !then.empty() && !now.empty() && then != now;
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
