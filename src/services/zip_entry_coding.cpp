// zip_entry_coding: coded form of zip entries
// format: docs/formats/coded-object.md
// invariant: the name does not travel
#include "zip_entry.h"

#include "codec.h"

#include <cstdint>

namespace km {

namespace {

long unknown_or_unsigned(long coded) {
    return coded == -1 ? -1 : static_cast<long>(static_cast<std::uint32_t>(coded));
}

// A negative size is one above 2 GiB of older writers.
long decoded_size(long coded) {
    if (coded >= 0)
        return coded;
    const auto bits = static_cast<std::uint32_t>(coded);
    return static_cast<long>(static_cast<std::uint32_t>(0U - bits + 0x80000000U));
}

} // namespace

const char* zip_entry::codable_name() const { return "com.ombrel.sd.cmObjects.zip_entry"; }

void zip_entry::encode_object(encoder& to) const {
    to.encode_integer_field(300, version);
    to.encode_integer_field(301, flag);
    to.encode_integer_field(302, method);
    to.encode_long_field(303, time);
    to.encode_long_field(304, crc);
    to.encode_long_field(305, csize);
    to.encode_long_field(306, size);
    to.encode_short_field(307, static_cast<short>(extra.size()));
    to.encode_string_field(308, "");
}

codable* zip_entry::decode_object(decoder& from, long stream_version) {
    // Never written here; writers of the base's form are read too.
    codable::decode_object(from, stream_version);
    std::int32_t dropped_version = 0;
    short dropped_length = 0;
    ustring dropped_text;
    from.decode_integer_field(300, dropped_version);
    from.decode_integer_field(301, flag);
    from.decode_integer_field(302, method);
    from.decode_long_field(303, time);
    from.decode_long_field(304, crc);
    from.decode_long_field(305, csize);
    from.decode_long_field(306, size);
    from.decode_short_field(307, dropped_length);
    from.decode_string_field(308, dropped_text);
    time = unknown_or_unsigned(time);
    crc = unknown_or_unsigned(crc);
    csize = unknown_or_unsigned(csize);
    size = decoded_size(size);
    return this;
}

} // namespace km

extern "C" km::codable* make_zip_entry() { return new km::zip_entry; }
