// pair_coding: coded form of pairs
// format: docs/formats/coded-object.md
// invariant: key, then value
#include "pair.h"

#include "codec.h"

namespace km {

const char* pair::codable_name() const { return "com.ombrel.sd.cmObjects.Pair"; }

codable* pair::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    from.decode_string_field(100, key_);
    from.decode_string_field(101, value_);
    return this;
}

void pair::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_string_field(100, key_);
    to.encode_string_field(101, value_);
}

} // namespace km

extern "C" km::codable* make_Pair() { return new km::pair; }
