// report_entry: short entry for reports
#pragma once

#include "ustring.h"

#include <cstdint>

namespace km {

// Coded form, in this order: string field 0 name, integer field 2 number, integer field 1 kind,
// string field 3 value_text.
class cm_report_entry : public codable {
  public:
    codable* clone() const override { return new cm_report_entry(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    ustring name;
    ustring value_text;
    std::int32_t kind = 0;
    std::int32_t number = 0;
};

} // namespace km
