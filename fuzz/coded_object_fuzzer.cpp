// The object coder over any bytes. SPEDITOR_LIB_PATH names a directory with a libs.znp.
#include "channel.h"
#include "codec.h"
#include "decode_channel.h"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    km::array_input_channel bytes(data, static_cast<int>(size));
    bytes.inhibit(1);
    km::decode_channel channel(&bytes);
    km::decoder in(&channel);
    in.package_build_number = size && (data[size - 1] & 1) ? 1501 : 0;
    km::codable* object = nullptr;
    in.decode_object(object);
    const std::unique_ptr<km::codable> owned(object);
    return 0;
}
