// pathname_coding: coded form of paths
// format: docs/formats/coded-object.md
// invariant: a path that was read is in its normal form
#include "pathname.h"

#include "codec.h"

namespace km {

const char* pathname::codable_name() const { return "com.ombrel.sd.cmObjects.pathname"; }

codable* pathname::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    ustring text = text_;
    from.decode_string_field(100, text);
    *this = text;
    return this;
}

void pathname::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_string_field(100, text_);
}

void pathname::import(importer&) {}
void pathname::export_(exporter&) const {}

} // namespace km

extern "C" km::codable* make_pathname() { return new km::pathname; }
