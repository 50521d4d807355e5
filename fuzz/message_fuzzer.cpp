// Binding of messages with any format.
#include "base/bind_msg.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string format(reinterpret_cast<const char*>(data), size);
    const km::any value = km::StringList{"one", "2", ""};
    std::free(km::real_msg_bind(nullptr, format.c_str(), 0, 0, value, nullptr, 0));
    return 0;
}
