// Two version texts of any characters: the comparison has a direction.
#include "package_version.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {
int sign(int value) { return (value > 0) - (value < 0); }
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const size_t half = bytes.find('|');
    const km::ustring a(bytes.substr(0, half).c_str());
    const km::ustring b(half == std::string::npos ? "" : bytes.substr(half + 1).c_str());
    if (km::compare_versions_znp(a, a) != 0)
        std::abort();
    const int forward = sign(km::compare_versions_znp(a, b));
    if (km::sp_check_version(a) && km::sp_check_version(b) &&
        forward != -sign(km::compare_versions_znp(b, a)))
        std::abort();
    return 0;
}
