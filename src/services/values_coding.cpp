// values_coding: coded form of numbers
// format: docs/formats/coded-object.md
// invariant: 32 bits travel
#include "values.h"

#include "codec.h"

namespace km {

const char* long_value::codable_name() const { return "com.ombrel.sd.cmObjects.CmLongValue"; }

codable* long_value::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    from.decode_long_field(100, value_);
    return this;
}

void long_value::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_long_field(100, value_);
}

const char* unsInt_value::codable_name() const {
    return "com.ombrel.sd.cmObjects.UnsignedIntValue";
}

codable* unsInt_value::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    auto bits = static_cast<std::int32_t>(value_);
    from.decode_integer_field(100, bits);
    value_ = static_cast<std::uint32_t>(bits);
    return this;
}

void unsInt_value::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_integer_field(100, static_cast<std::int32_t>(value_));
}

} // namespace km

extern "C" km::codable* make_CmLongValue() { return new km::long_value; }
extern "C" km::codable* make_UnsignedIntValue() { return new km::unsInt_value; }
