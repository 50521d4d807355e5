// data_holders: further data of reports
// format: docs/formats/report.md
// invariant: each sequence holds objects of its one class alone
#include "data_holders.h"

#include "codec.h"
#include "pair.h"
#include "take_elements.h"

namespace km {

namespace {

void encode_all(encoder& to, int id, const vector& elements) {
    vector_iterator each(const_cast<vector*>(&elements));
    to.encode_iterator(id, &each);
}

} // namespace

const char* inventory_data_holder::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmInventoryDataHolder";
}

void inventory_data_holder::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_integer_field(300, action_type);
    encode_all(to, 301, hardware_ids);
    encode_all(to, 302, packages);
    encode_all(to, 303, operations);
}

codable* inventory_data_holder::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    from.decode_integer_field(300, action_type);
    take_elements<ustring>(from, 301, hardware_ids);
    take_elements<pair>(from, 302, packages);
    take_elements<ustring>(from, 303, operations);
    return this;
}

const char* device_data_holder::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmDeviceDataHolder";
}

void device_data_holder::encode_object(encoder& to) const {
    codable::encode_object(to);
    encode_all(to, 300, failed_targets);
    encode_all(to, 301, good_targets);
}

codable* device_data_holder::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    take_elements<ustring>(from, 300, failed_targets);
    take_elements<ustring>(from, 301, good_targets);
    return this;
}

const char* vfan2_db_data_holder::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmVfan2DBDataHolder";
}

void vfan2_db_data_holder::encode_object(encoder& to) const {
    codable::encode_object(to);
    encode_all(to, 300, targets_by_oid);
    encode_all(to, 301, targets_by_name);
    encode_all(to, 302, errors);
}

codable* vfan2_db_data_holder::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    take_elements<ustring>(from, 300, targets_by_oid);
    take_elements<ustring>(from, 301, targets_by_name);
    take_elements<ustring>(from, 302, errors);
    return this;
}

} // namespace km

extern "C" km::codable* make_CmInventoryDataHolder() { return new km::inventory_data_holder; }
extern "C" km::codable* make_CmDeviceDataHolder() { return new km::device_data_holder; }
extern "C" km::codable* make_CmVfan2DBDataHolder() { return new km::vfan2_db_data_holder; }
