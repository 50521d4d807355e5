// deflated_entry: data of one zip entry, deflated apart from its container
// format: docs/formats/zip.md
// invariant: the bytes are those that a zipping_channel makes of the same writes
#include "deflated_entry.h"

namespace km {

entry_deflater::stream::stream(output_channel* to, int level)
    : compressing_channel(to, new compressor(level), entry_step) {}

entry_deflater::entry_deflater(int level) : stream_(&sink_, level) {}

void entry_deflater::write(const unsigned char* buffer, int length) {
    if (length < 1)
        return;
    stream_.write(buffer, length);
    crc_.update(buffer, length);
    size_ += length;
}

deflated_data entry_deflater::finish() {
    stream_.finish();
    deflated_data done{std::move(sink_.bytes), size_, crc_.get_value()};
    sink_.bytes.clear();
    stream_.begin_again();
    crc_.reset();
    size_ = 0;
    return done;
}

} // namespace km
