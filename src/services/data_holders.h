// data_holders: further data of reports
#pragma once

#include "vector.h"

namespace km {

// Base of the holders: fields of their own behind the base's form, each a sequence.
class data_holder : public codable {
  public:
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }
};

// Coded form: the base's form, integer field 300 action_type, iterator fields 301 hardware_ids
// (ustring), 302 packages (pair of name and version), 303 operations (ustring).
class inventory_data_holder : public data_holder {
  public:
    codable* clone() const override { return new inventory_data_holder(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    std::int32_t action_type = 0;
    vector hardware_ids;
    vector packages;
    vector operations;
};

// Coded form: the base's form, iterator fields 300 failed_targets, 301 good_targets (ustring).
class device_data_holder : public data_holder {
  public:
    codable* clone() const override { return new device_data_holder(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    vector failed_targets;
    vector good_targets;
};

// Coded form: the base's form, iterator fields 300 targets_by_oid, 301 targets_by_name, 302 errors
// (ustring).
class vfan2_db_data_holder : public data_holder {
  public:
    codable* clone() const override { return new vfan2_db_data_holder(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    vector targets_by_oid;
    vector targets_by_name;
    vector errors;
};

} // namespace km
