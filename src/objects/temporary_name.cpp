// temporary_name: the name beside its place under which something is made
// no format
// invariant: a name of any length has a temporary name that is short enough
#include "temporary_name.h"

#include "crc.h"
#include "package.h"

#include <cstdio>

namespace km {

std::string temporary_name_of(const std::string& path, int index, const cm_package* package) {
    constexpr size_t longest_kept = 230;
    const size_t slash = path.find_last_of('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string key = path + "\n" + std::to_string(index);
    if (package)
        key += std::string("\n") + package->name.mbcs_str() + "^" + package->version.mbcs_str();
    CRC32 sum;
    sum.update(reinterpret_cast<const unsigned char*>(key.data()), static_cast<int>(key.size()));
    char mark[16];
    std::snprintf(mark, sizeof mark, ".km~%08lx",
                  static_cast<unsigned long>(sum.get_value()) & 0xFFFFFFFFUL);
    return "." + name.substr(0, longest_kept) + mark;
}

} // namespace km
