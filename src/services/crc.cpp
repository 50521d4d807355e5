// crc: checksum of bytes that pass
// no format
// invariant: the value is that of all bytes since reset()
#include "crc.h"

#include <zlib.h>

namespace km {

void CRC32::reset() { value_ = ::crc32(0, nullptr, 0); }

void CRC32::update(const unsigned char* buffer, int length) {
    if (length > 0)
        value_ = ::crc32(value_, buffer, static_cast<uInt>(length));
}

void CRC32::update(int byte) {
    const auto one = static_cast<unsigned char>(byte);
    update(&one, 1);
}

} // namespace km
