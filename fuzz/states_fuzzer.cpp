// Bytes as the file of a record of steps: mended, read, changed, read again.
#include "base_configuration.h"
#include "states.h"
#include "ustring.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

// A state of its own below the working directory of the fuzzer, made once.
const std::string& record_file() {
    static const std::string path = [] {
        char home[] = "/tmp/kmfuzz.XXXXXX";
        if (!::mkdtemp(home))
            std::abort();
        std::ofstream(std::string(home) + "/libs.znp") << KM_BUILD_LIB "/libkmcore\n";
        ::setenv("SPEDITOR_LIB_PATH", home, 1);
        km::set_configuration_location(km::pathname(home));
        return std::string((km::states::get_states_dir() + km::ustring(u"op")).mbcs_str());
    }();
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int out = ::open(record_file().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0 || ::write(out, data, size) != static_cast<ssize_t>(size))
        std::abort();
    ::close(out);
    km::states record("op");
    if (record.open(0, 0) != km::states::success)
        std::abort();
    const bool todo = record.current_operation("step") != 0;
    const bool done = !todo || record.commit();
    // A file that could be read takes a step, and one that could not takes none.
    if (todo && done == (record.get_table_error() != 0))
        std::abort();
    record.close();
    if (record.open(0, 0) != km::states::success ||
        (todo && done && !record.operation_exists("step")))
        std::abort();
    return record.close_and_remove() ? 0 : 1;
}
