// A template of any bytes: it always gives whole lines.
#include "channel.h"
#include "formatter.h"
#include "proxy_kinds.h"
#include "ustring_writer.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    km::formatter form(text.c_str());
    km::proxy_publish of;
    of.state = 0x4020004;
    km::array_output_channel written(256);
    km::ustring_writer to(&written);
    form.write_formatted(to, of, km::ustring(u"logger"), km::ustring(u"file, db"));
    if (written.get_count() == 0 || written.get_data()[written.get_count() - 1] != '\n')
        std::abort();
    return 0;
}
