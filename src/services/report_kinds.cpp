// report_kinds: reports with data of their own
// format: docs/formats/report.md
// invariant: a file that a failed decoding made is gone
#include "report_kinds.h"

#include "base_configuration.h"
#include "codec.h"
#include "file.h"
#include "trclog.h"

namespace km {

const char* bulk_report::codable_name() const { return "com.ombrel.sd.cmObjects.CmBulkReport"; }

void bulk_report::encode_object(encoder& to) const {
    KM_TRACE_FUNCTION("bulk_report::encode_object");
    report::encode_object(to);
    to.encode_boolean_field(201, is_bulk_pointer_);
    if (is_bulk_pointer_)
        to.encode_string_field(200, path_.get_text());
    else
        to.encode_string_field(200, path_);
    // What came in and is passed on leaves no data behind; a file that a stream merely names is
    // never ours to remove.
    if (decoded && owns_data_)
        file(path_).remove(1);
}

// A pointer names its file; else the content goes to a new one.
void bulk_report::read_data(decoder& from) {
    if (from.get_status())
        return;
    if (is_bulk_pointer_) {
        ustring text;
        from.decode_string_field(200, text);
        path_ = text;
        return;
    }
    const pathname working_dir(base_configuration().get_var(u"working_dir"));
    const std::unique_ptr<file> made(file::get_temp_name(working_dir, u"BR", 1, nullptr));
    if (!made) {
        from.set_status(decoder::failed);
        return;
    }
    path_ = made->get_path();
    owns_data_ = 1;
    from.decode_string_field(200, path_);
    if (!from.get_status())
        return;
    made->remove(0);
    path_ = pathname();
    owns_data_ = 0;
}

codable* bulk_report::decode_object(decoder& from, long stream_version) {
    KM_TRACE_FUNCTION("bulk_report::decode_object");
    report::decode_object(from, stream_version);
    from.decode_boolean_field(201, is_bulk_pointer_);
    read_data(from);
    KM_TRACE(trace_info, "common", "decoded is bulk pointer = %s",
             is_bulk_pointer_ ? "TRUE" : "FALSE");
    KM_TRACE(trace_info, "common", "_pathname = %s", path_.mbcs_str());
    init_protocol(path_);
    return this;
}

const char* vfan2_report::codable_name() const { return "com.ombrel.sd.cmObjects.CmVfan2Report"; }

void vfan2_report::encode_object(encoder& to) const {
    report::encode_object(to);
    to.encode_string_field(200, path_.get_text());
}

codable* vfan2_report::decode_object(decoder& from, long stream_version) {
    report::decode_object(from, stream_version);
    ustring text;
    from.decode_string_field(200, text);
    path_ = text;
    init_protocol(path_);
    return this;
}

const char* dm_report::codable_name() const { return "com.ombrel.sd.cmObjects.CmDMReport"; }

const char* device_report::codable_name() const { return "com.ombrel.sd.cmObjects.CmDeviceReport"; }

int device_report::add_fail_good_targets(void*, void*) {
    KM_TRACE_FUNCTION("device_report::add_fail_good_targets");
    return 0;
}

device_data_holder* device_report::get_data() const {
    return dynamic_cast<device_data_holder*>(get_opt_params());
}

namespace {

template <class Holder> void check_data(const report& of, decoder& from) {
    if (of.get_opt_params() && !dynamic_cast<Holder*>(of.get_opt_params()))
        from.set_status(decoder::failed);
}

} // namespace

const char* inventory_report::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmInventoryReport";
}

codable* inventory_report::decode_object(decoder& from, long stream_version) {
    report::decode_object(from, stream_version);
    check_data<inventory_data_holder>(*this, from);
    return this;
}

inventory_data_holder* inventory_report::get_data() const {
    return dynamic_cast<inventory_data_holder*>(get_opt_params());
}

void inventory_report::add_hardware_id(const char* id) {
    auto* data = need_data<inventory_data_holder>();
    if (data && id)
        data->hardware_ids.push_back(new ustring(id));
}

void inventory_report::add_sp_name_version(const pair* name_and_version) {
    auto* data = need_data<inventory_data_holder>();
    if (data && name_and_version)
        data->packages.push_back(name_and_version->clone());
}

void inventory_report::add_operation(const char* operation) {
    auto* data = need_data<inventory_data_holder>();
    if (data && operation)
        data->operations.push_back(new ustring(operation));
}

void inventory_report::set_action_type(int type) {
    if (auto* data = need_data<inventory_data_holder>())
        data->action_type = type;
}

const char* vfan2_db_report::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmVFan2DBReport";
}

codable* vfan2_db_report::decode_object(decoder& from, long stream_version) {
    report::decode_object(from, stream_version);
    check_data<vfan2_db_data_holder>(*this, from);
    return this;
}

vfan2_db_data_holder* vfan2_db_report::get_data() const {
    return dynamic_cast<vfan2_db_data_holder*>(get_opt_params());
}

void vfan2_db_report::add_target_by_oid(const ustring& oid) {
    if (auto* data = need_data<vfan2_db_data_holder>())
        data->targets_by_oid.push_back(oid.clone());
}

void vfan2_db_report::add_target_by_name(const ustring& target) {
    if (auto* data = need_data<vfan2_db_data_holder>())
        data->targets_by_name.push_back(target.clone());
}

void vfan2_db_report::add_error(const ustring& error) {
    if (auto* data = need_data<vfan2_db_data_holder>())
        data->errors.push_back(error.clone());
}

} // namespace km

extern "C" km::codable* make_CmBulkReport() { return new km::bulk_report; }
extern "C" km::codable* make_CmVfan2Report() { return new km::vfan2_report; }
extern "C" km::codable* make_CmDMReport() { return new km::dm_report; }
extern "C" km::codable* make_CmDeviceReport() { return new km::device_report; }
extern "C" km::codable* make_CmInventoryReport() { return new km::inventory_report; }
extern "C" km::codable* make_CmVFan2DBReport() { return new km::vfan2_db_report; }
