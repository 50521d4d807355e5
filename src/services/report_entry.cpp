// report_entry: short entry for reports
// format: docs/formats/catalog.md
// invariant: field 2 stands before field 1
#include "report_entry.h"

#include "codec.h"

namespace km {

const char* cm_report_entry::codable_name() const {
    return "com.ombrel.sd.cmObjects.cm_report_entry";
}

void cm_report_entry::encode_object(encoder& to) const {
    to.encode_string_field(0, name);
    to.encode_integer_field(2, number);
    to.encode_integer_field(1, kind);
    to.encode_string_field(3, value_text);
}

codable* cm_report_entry::decode_object(decoder& from, long) {
    from.decode_string_field(0, name);
    from.decode_integer_field(2, number);
    from.decode_integer_field(1, kind);
    from.decode_string_field(3, value_text);
    return this;
}

} // namespace km

extern "C" km::codable* make_cm_report_entry() { return new km::cm_report_entry; }
