// The forward-only reader of zip containers over any bytes.
#include "unzipping_channel.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    km::unzipping_channel zip(new km::array_input_channel(data, static_cast<int>(size)));
    unsigned char block[4096];
    for (int entries = 0; entries < 100 && zip.get_next_entry(); ++entries)
        for (long got = 0, total = 0; total < (1 << 22); total += got)
            if ((got = zip.read(block, 1 + (data[0] % sizeof block))) < 1)
                break;
    return 0;
}
