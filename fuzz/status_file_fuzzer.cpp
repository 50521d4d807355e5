// A directory of status files of any bytes, loaded twice, and a progress file. TMPDIR should be in
// memory; SPEDITOR_LIB_PATH names a directory with a libs.znp.
#include "StatusHandler.h"
#include "fileio.h"
#include "log_protocol.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

std::string directory() {
    const char* base = std::getenv("TMPDIR");
    return std::string(base ? base : "/tmp") + "/status_fuzz." + std::to_string(::getpid());
}

void put(const std::string& name, const uint8_t* data, size_t size) {
    std::ofstream(directory() + "/" + name, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

} // namespace

// The first byte says which files are there; they share the rest of the bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    const std::string dir = directory();
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const char* const names[] = {"MSA1", "MSA1.bak", "MSA1.wrn", "MSB2", "MSB2.bak"};
    const size_t share = (size - 1) / 2;
    for (size_t i = 0; i < 5; ++i)
        if (data[0] >> i & 1)
            put(names[i], data + 1 + (i & 1) * share, i & 2 ? share : size - 1 - (i & 1) * share);
    const km::pathname at(dir.c_str());
    for (int round = 0; round < 2; ++round)
        delete km::StatusHandler().load(at, km::ustring(u"MS"));
    km::vector paths;
    if (km::StatusHandler().load_dir(at, km::ustring(u"MS"), paths) < 0)
        std::abort();
    put("progress", data, size);
    km::file_handle progress(at + km::ustring(u"progress"));
    km::log_protocol::get_msg_status(&progress);
    std::filesystem::remove_all(dir);
    return 0;
}
