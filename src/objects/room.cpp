// room: whether all files of an operation together find place
// no format
// invariant: a file that replaces another needs room beside it for a moment
#include "room.h"

#include "target_root.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>

namespace km {

namespace {
using bytes_t = unsigned long long;

struct account {
    bytes_t free_at_start = 0;
    bytes_t growth = 0;           // of all files together
    bytes_t largest_replacer = 0; // stands beside what it replaces
};

std::map<dev_t, account>& accounts() {
    static std::map<dev_t, account> all;
    return all;
}

constexpr bytes_t block = 4096;
bytes_t on_disk(long bytes) {
    return (static_cast<bytes_t>(std::max(bytes, 0L)) + block - 1) / block * block;
}
} // namespace

void forget_room() { accounts().clear(); }

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

int note_room(int directory, long bytes, long replaced, std::string& needed,
              std::string& free_bytes) {
    dev_t device = 0;
    if (!file_system_of(directory, device))
        return 0;
    auto at = accounts().find(device);
    if (at == accounts().end()) {
        bytes_t free_now = 0;
        if (!room_in(directory, free_now, device))
            return 0;
        at = accounts().emplace(device, account()).first;
        at->second.free_at_start = free_now;
    }
    account& one = at->second;
    const bytes_t size = on_disk(bytes), old = on_disk(replaced);
    if (size > old)
        one.growth += size - old;
    if (old)
        one.largest_replacer = std::max(one.largest_replacer, std::min(size, old));
    const bytes_t need = one.growth + one.largest_replacer;
    if (need <= one.free_at_start)
        return 1;
    needed = in_words(need);
    free_bytes = in_words(one.free_at_start);
    errno = ENOSPC;
    return 0;
}

} // namespace km
