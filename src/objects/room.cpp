// room: whether all files of an operation together find place
// no format
// invariant: a file that replaces another needs room beside it for a moment
#include "room.h"

#include "base_configuration.h"
#include "target_root.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <unistd.h>

namespace km {

namespace {
using bytes_t = unsigned long long;

std::map<dev_t, room_account>& accounts() {
    static std::map<dev_t, room_account> all;
    return all;
}

struct known_backups {
    bool asked = false, found = false;
    dev_t device = 0;
};

known_backups& backups() {
    static known_backups only;
    return only;
}

constexpr bytes_t block = 4096;
constexpr bytes_t backup_entry = 256; // names and sizes of one object in the backup
bytes_t on_disk(long bytes) {
    return (static_cast<bytes_t>(std::max(bytes, 0L)) + block - 1) / block * block;
}

// The directory of the backups, or the nearest one above it that is there.
int open_backups(std::string& at) {
    at = base_configuration().get_var(u"backup_dir").mbcs_str();
    for (;;) {
        const int directory = ::open(at.empty() ? "/" : at.c_str(), O_PATH | O_CLOEXEC);
        if (directory >= 0 || at.empty() || errno != ENOENT)
            return directory;
        at.erase(at.find_last_of('/') == std::string::npos ? 0 : at.find_last_of('/'));
    }
}

room_account* account_on_backups() {
    known_backups& known = backups();
    if (!known.asked) {
        room_account one;
        known = {true, account_of_backups(known.device, one), known.device};
        if (known.found)
            accounts().emplace(known.device, one);
    }
    return known.found ? &accounts()[known.device] : nullptr;
}

int tell_missing(const room_account& one, bool with_backup, std::string& needed,
                 std::string& free_bytes) {
    needed = in_words(one.needed(with_backup));
    if (with_backup && one.backup)
        needed += " (" + in_words(one.backup) + " of it for the backup)";
    free_bytes = in_words(one.free);
    errno = ENOSPC;
    return 0;
}
} // namespace

void room_account::add(long bytes, long replaced) {
    const bytes_t size = on_disk(bytes), old = on_disk(replaced);
    if (size > old)
        growth += size - old;
    if (old)
        largest_replacer = std::max(largest_replacer, std::min(size, old));
}

void room_account::add_to_backup(long bytes) {
    backup += static_cast<bytes_t>(std::max(bytes, 0L)) + backup_entry;
}

bytes_t room_account::needed(bool with_backup) const {
    return growth + largest_replacer + (with_backup ? backup : 0);
}

bool account_of_backups(dev_t& device, room_account& one) {
    const int directory = open_backups(one.at);
    if (directory < 0)
        return false;
    const bool found = room_in(directory, one.free, device);
    ::close(directory);
    return found;
}

void forget_room() {
    accounts().clear();
    backups() = known_backups();
}

std::string in_words(bytes_t bytes) {
    const char* const units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    double number = static_cast<double>(bytes);
    unsigned unit = 0;
    while (number >= 1024 && unit + 1 < std::size(units)) {
        number /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit ? "%.1f %s" : "%.0f %s", number, units[unit]);
    return text;
}

int note_room(int directory, long bytes, long replaced, bool with_backup, std::string& needed,
              std::string& free_bytes) {
    dev_t device = 0;
    if (!file_system_of(directory, device))
        return 0;
    auto at = accounts().find(device);
    if (at == accounts().end()) {
        room_account one;
        if (!room_in(directory, one.free, device))
            return 0;
        at = accounts().emplace(device, one).first;
    }
    room_account& one = at->second;
    one.add(bytes, replaced);
    return one.needed(with_backup) <= one.free ? 1
                                               : tell_missing(one, with_backup, needed, free_bytes);
}

int note_backup_room(long bytes, std::string& at, std::string& needed, std::string& free_bytes) {
    room_account* one = account_on_backups();
    if (!one)
        return 1; // whoever writes it tells why it cannot
    one->add_to_backup(bytes);
    if (backup_finds_room(at, needed, free_bytes))
        return 1;
    one->backup = 0;
    return 0;
}

int backup_finds_room(std::string& at, std::string& needed, std::string& free_bytes) {
    const room_account* one = account_on_backups();
    if (!one || !one->backup || one->needed() <= one->free)
        return 1;
    at = one->at;
    return tell_missing(*one, true, needed, free_bytes);
}

} // namespace km
