// The package stream over any bytes: plain, or, where they begin like one, in a zip container. What
// is accepted must be written again. SPEDITOR_LIB_PATH names a directory with a libs.znp.
// With KM_SEEDS=DIR the program writes a stream, a profile and a block there and ends.
#include "base_configuration.h"
#include "composite_command.h"
#include "log_objects.h"
#include "package.h"
#include "pair.h"
#include "restart.h"
#include "sp_object.h"
#include "variable_list.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdlib.h>
#include <string>

namespace {

void write_seeds(const std::string& directory) {
    km::variable_list variables;
    variables.set_value("x", "value");
    km::cm_package package;
    package.name = "package";
    package.version = "1";
    package.title = "$(x)";
    package.variables = &variables;
    package.log_object_list = new km::log_object_list;
    package.nested_packages.push_back(new km::pair(km::ustring("package"), km::ustring("1")));
    auto* inner = new km::cm_composite_command(1);
    inner->condition = "$(x) == value";
    inner->add(new km::restart, nullptr);
    package.add(inner, nullptr);
    const auto file = [&](const char* name) {
        return km::pathname((directory + "/" + name).c_str());
    };
    km::file_output_channel plain(file("stream"), 0);
    km::sp_object writer;
    writer.encode(&package, &variables, plain, km::sp_object::spb);
    writer.encode(&package, &variables, file("profile"), km::sp_object::sp);
    km::file_output_channel block(file("block"), 0);
    km::zipping_channel zip(&block);
    package.save(&zip);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static char own[] = "/tmp/kmfuzz.XXXXXX";
    if (!::mkdtemp(own))
        std::abort();
    km::set_configuration_location(km::pathname(own)); // never the machine's own settings
    if (const char* seeds = std::getenv("KM_SEEDS")) {
        write_seeds(seeds);
        std::_Exit(0);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    km::array_input_channel bytes(data, static_cast<int>(size));
    bytes.inhibit(1);
    km::unzipping_channel zip(&bytes);
    zip.set_skip_tail(0);
    km::input_channel* source = &bytes;
    if (size > 1 && data[0] == 'P' && data[1] == 'K') {
        if (!zip.get_next_entry())
            return 0;
        source = &zip;
    }
    km::cm_package* read = nullptr;
    km::sp_object reader;
    const auto result = reader.decode(read, source, 1, km::sp_object::either);
    const std::unique_ptr<km::cm_package> package(read);
    if ((result == km::cm_command::success) != (read != nullptr))
        std::abort();
    km::array_output_channel again(4096);
    if (read && reader.encode(read, nullptr, again, km::sp_object::sp) != km::cm_command::success)
        std::abort();
    return 0;
}
