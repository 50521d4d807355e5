// report_coding: coded form of reports
// format: docs/formats/report.md
// invariant: fields are read in the order in which they are written
#include "report.h"

#include "codec.h"
#include "log_protocol.h"
#include "trclog.h"

#include <algorithm>

namespace km {

namespace {

// The trace is spared long texts.
ustring cut_for_trace(const ustring& text) {
    constexpr unsigned traced = 800;
    return text.substr(0, std::min(text.length(), traced));
}

void trace_fields(const report& of) {
    static constexpr const char* km_function_name = "report";
    KM_TRACE(trace_info, "common", "status = %ld", of.status);
    KM_TRACE(trace_info, "common", "endpoint_id = %s", of.endpoint_id.mbcs_str());
    KM_TRACE(trace_info, "common", "spo_oid = %s", of.spo_oid.mbcs_str());
    KM_TRACE(trace_info, "common", "base_name = %s", of.base_name.mbcs_str());
    KM_TRACE(trace_info, "common", "base_version = %s", of.base_version.mbcs_str());
    KM_TRACE(trace_info, "common", "base_oid = %s", of.base_oid.mbcs_str());
    KM_TRACE(trace_info, "common", "origin_user = %s", of.origin_user.mbcs_str());
    KM_TRACE(trace_info, "common", "exit_codes_msg = %s",
             cut_for_trace(of.exit_codes_msg).mbcs_str());
    KM_TRACE(trace_info, "common", "exec_time = %s", of.exec_time.mbcs_str());
}

} // namespace

const char* report::codable_name() const { return "com.ombrel.sd.cmObjects.CmReport"; }

void report::encode_object(encoder& to) const {
    KM_TRACE_FUNCTION("report::encode_object");
    codable::encode_object(to);
    to.encode_string_field(100, distribution_id);
    to.encode_string_field(101, name);
    to.encode_string_field(102, version);
    to.encode_string_field(103, spname);
    to.encode_string_field(104, endpoint_guid);
    to.encode_string_field(105, endpoint_name);
    to.encode_long_field(106, operation_mode);
    to.encode_long_field(107, operation_type);
    to.encode_string_field(108, result);
    to.encode_string_field(109, further_text);
    to.encode_string_field(110, message);
    to.encode_long_field(111, state);
    to.encode_boolean_field(113, exception);
    to.encode_object_field(112, protocol_.get());
    to.encode_long_field(114, status);
    to.encode_boolean_field(115, primary);
    to.encode_string_field(116, endpoint_id);
    to.encode_string_field(120, spo_oid);
    to.encode_string_field(117, base_name);
    to.encode_string_field(118, base_version);
    to.encode_string_field(119, base_oid);
    to.encode_string_field(121, origin_user);
    KM_TRACE(trace_info, "common", "Encoding opt_params... %s",
             opt_params_ ? opt_params_->codable_name() : "");
    to.encode_object_field(122, opt_params_.get());
    to.encode_string_field(123, exit_codes_msg);
    to.encode_string_field(124, exec_time);
    to.encode_string_field(125, user_name);
    trace_fields(*this);
    encoded = 1;
}

codable* report::decode_object(decoder& from, long stream_version) {
    KM_TRACE_FUNCTION("report::decode_object");
    codable::decode_object(from, stream_version);
    from.decode_string_field(100, distribution_id);
    from.decode_string_field(101, name);
    from.decode_string_field(102, version);
    from.decode_string_field(103, spname);
    from.decode_string_field(104, endpoint_guid);
    from.decode_string_field(105, endpoint_name);
    from.decode_long_field(106, operation_mode);
    from.decode_long_field(107, operation_type);
    from.decode_string_field(108, result);
    from.decode_string_field(109, further_text);
    from.decode_string_field(110, message);
    from.decode_long_field(111, state);
    from.decode_boolean_field(113, exception);
    if (auto* protocol = from.take_owned<log_protocol>(112))
        protocol_.reset(protocol);
    from.decode_long_field(114, status);
    from.decode_boolean_field(115, primary);
    from.decode_string_field(116, endpoint_id);
    from.decode_string_field(120, spo_oid);
    from.decode_string_field(117, base_name);
    from.decode_string_field(118, base_version);
    from.decode_string_field(119, base_oid);
    from.decode_string_field(121, origin_user);
    if (auto* further = from.take_owned<codable>(122))
        report::set_opt_params(further);
    from.decode_string_field(123, exit_codes_msg);
    from.decode_string_field(124, exec_time);
    from.decode_string_field(125, user_name);
    trace_fields(*this);
    if (from.get_status()) {
        KM_TRACE(trace_error, "common", "ERROR during decode phase!!");
        return this;
    }
    init_protocol(pathname());
    decoded = 1;
    encoded = 0;
    return this;
}

} // namespace km

extern "C" km::codable* make_CmReport() { return new km::report; }
