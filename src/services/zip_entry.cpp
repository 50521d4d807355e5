// zip_entry: one entry of a zip container
// format: docs/formats/zip.md
// invariant: an unknown number is -1, a known one is 0 to 0xFFFFFFFF
#include "zip_entry.h"

#include "file.h"

#include <cstring>

namespace km {

namespace {
constexpr size_t longest_name = 65535;
}

zip_entry::zip_entry(const char* name) {
    if (std::strlen(name) > longest_name)
        error = 1;
    else
        set_raw_name(file::convert_to_pathname(name).mbcs_str());
}

void zip_entry::set_raw_name(const std::string& name) {
    name_ = name;
    has_name_ = true;
}

void zip_entry::clear_name() {
    name_.clear();
    has_name_ = false;
}

} // namespace km
