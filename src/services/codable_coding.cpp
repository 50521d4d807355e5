// codable_coding: coded form of the base
// format: docs/formats/coded-object.md
// invariant: the base writes field 0 alone
#include "codable.h"

#include "codec.h"

namespace km {

codable* codable::decode_object(decoder& from, long) {
    from.decode_integer_field(0, version);
    return this;
}

void codable::encode_object(encoder& to) const { to.encode_integer_field(0, version); }

} // namespace km
