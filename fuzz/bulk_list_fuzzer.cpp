// A list of bulk data of any bytes and a key out of it. The settings lie below TMPDIR, which should
// be in memory.
#include "base_configuration.h"
#include "bulk_list.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

const std::string& directory() {
    static const std::string made = [] {
        const char* base = std::getenv("TMPDIR");
        std::string dir =
            std::string(base ? base : "/tmp") + "/bulk_fuzz." + std::to_string(::getpid());
        std::filesystem::create_directories(dir + "/work");
        std::ofstream(dir + "/znpis.ini") << "[#MOBILE]\nworking_dir=" << dir << "/work\n";
        km::set_configuration_location(km::pathname(dir.c_str()));
        return dir;
    }();
    return made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string list = directory() + "/work/bulk.lst";
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::ofstream(list, std::ios::binary) << bytes;
    const km::ustring key(bytes.substr(0, std::min<size_t>(size, 3)).c_str());
    km::get_bulk_file_name(key);
    km::remove_bulk_file_name(key);
    if (!km::set_bulk_file_name(u"key", u"/path"))
        std::abort();
    return 0;
}
