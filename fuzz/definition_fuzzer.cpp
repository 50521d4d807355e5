// A definition of any bytes: what is read is written, and reads back the same.
#include "base/msg_supp.h"
#include "package.h"
#include "text_exporter.h"
#include "text_importer.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// Most inputs get a head, so that the stanzas are reached.
std::string text_of(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    if (!size || !(data[0] & 3))
        return bytes;
    return "kmspd 1.0\npackage { name = n version = 1\n" + bytes.substr(1) + "\n}";
}

std::unique_ptr<km::cm_package> read(const std::string& text, km::spmessage& messages) {
    static km::text_importer importer;
    const int descriptor = ::memfd_create("definition", MFD_CLOEXEC);
    if (descriptor < 0 ||
        ::write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    importer.messages = &messages;
    km::cm_package* package = nullptr;
    const int good = importer.load(km::pathname(path.c_str()), package);
    ::close(descriptor);
    if ((good != 0) != (package != nullptr) || (!good && !messages.get_count()))
        std::abort();
    return std::unique_ptr<km::cm_package>(package);
}

std::string written(const km::cm_package& package) {
    km::text_exporter out;
    if (!out.open(km::pathname()))
        std::abort();
    package.export_(out);
    return out.text();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::setenv("SPEDITOR_LIB_PATH", KM_SHARE, 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    km::spmessage messages, again;
    const auto first = read(text_of(data, size), messages);
    messages.bind();
    if (!first)
        return 0;
    first->creation_time = first->last_modification_time = 0;
    const std::string text = written(*first);
    const auto second = read(text, again);
    if (!second)
        std::abort();
    second->creation_time = second->last_modification_time = 0;
    if (written(*second) != text)
        std::abort();
    return 0;
}
