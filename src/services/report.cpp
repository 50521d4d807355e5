// report: what happened to one package in one operation
// format: docs/formats/report.md
// invariant: the protocol's opt_params are the report's own, or null
#include "report.h"

#include "file.h"
#include "fileio.h"
#include "formatter.h"
#include "log_protocol.h"
#include "notification.h"
#include "number_text.h"
#include "persistent_hashtable.h"
#include "report_filter.h"
#include "trclog.h"

#include <string>

namespace km {

report::report() = default;
report::report(log_protocol* protocol) : protocol_(protocol) {}
report::~report() = default;

report::report(const report& other)
    : codable(other), distribution_id(other.distribution_id), name(other.name),
      version(other.version), spname(other.spname), endpoint_guid(other.endpoint_guid),
      endpoint_name(other.endpoint_name), endpoint_id(other.endpoint_id), spo_oid(other.spo_oid),
      base_name(other.base_name), base_version(other.base_version), base_oid(other.base_oid),
      origin_user(other.origin_user), exec_time(other.exec_time),
      operation_mode(other.operation_mode), operation_type(other.operation_type),
      result(other.result), further_text(other.further_text), message(other.message),
      state(other.state), exception(other.exception), primary(other.primary),
      exit_codes_msg(other.exit_codes_msg), user_name(other.user_name), status(other.status),
      encoded(other.encoded), decoded(other.decoded) {
    if (other.protocol_)
        set_protocol(dynamic_cast<log_protocol*>(other.protocol_->clone()));
    if (other.opt_params_)
        report::set_opt_params(other.opt_params_->clone());
}

void report::set_protocol(log_protocol* protocol) {
    protocol_.reset(protocol);
    if (protocol_)
        protocol_->opt_params = opt_params_.get();
}

void report::set_opt_params(codable* value) {
    opt_params_.reset(value);
    if (protocol_)
        protocol_->opt_params = value;
}

void report::set_factory(log_protocol_factory* factory) {
    if (protocol_)
        protocol_->set_factory(factory);
}

int report::add_fail_good_targets(void*, void*) { return 0; }

void report::init_protocol(const pathname& path) {
    KM_TRACE_FUNCTION("report::init_protocol");
    if (protocol_)
        protocol_->initialize(operation_type, operation_mode, endpoint_name, endpoint_id,
                              endpoint_guid, spo_oid, base_name, base_version, base_oid,
                              origin_user, exec_time, user_name, message, exit_codes_msg, state,
                              distribution_id, name, version, spname, path, exception, primary,
                              opt_params_.get());
}

NotificationPolicy* report::createNotificationPolicy() { return new ZNPNotificationPolicy(this); }

void report::set_user_name(const ustring& id, Persistent_Hashtable* table) {
    KM_TRACE_FUNCTION("report::set_user_name");
    if (!table)
        return;
    if (const auto* value = table->get_as<ustring>(id))
        user_name = value->substr(0, value->rfind(u'@'));
}

void report::to_text(filter& by, ustring_writer& to, formatter& form) {
    KM_TRACE_FUNCTION("report::to_text");
    if (protocol_ && protocol_->test(by, 1) && (status != log_delivered || by.delivered_too))
        protocol_->to_text(by, to, form, status);
}

void report::remove(filter& by, ustring_writer& to, formatter& form) {
    KM_TRACE_FUNCTION("report::remove");
    if (!protocol_ || status == log_delivered || !protocol_->test(by, 1))
        return;
    status = log_delivered;
    protocol_->to_text(by, to, form, status);
}

namespace {

constexpr long status_size = 4;

// Null, with a trace, if it cannot be opened. A file of another size than a status word's has no
// status; it gets the word as it stands, and nothing else.
std::unique_ptr<file_handle> open_status_file(const pathname& path, long& status,
                                              unsigned long key) {
    static constexpr const char* km_function_name = "report::do_log";
    const bool known = file(path).exists() && file(path).get_size() == status_size;
    auto handle = std::make_unique<file_handle>(path);
    if (handle->get_state()) {
        KM_TRACE(trace_error, "common", "Error %ld opening %s\n",
                 static_cast<long>(handle->get_system_error()), path.mbcs_str());
        KM_TRACE(trace_error, "common", "Unable to create handle on %s\n", path.mbcs_str());
        return nullptr;
    }
    if (!known) {
        // Room on the disk for the word, before a channel has taken what no word could tell of.
        handle->chsize(0);
        log_protocol::set_msg_status(handle.get(), status);
        return handle;
    }
    KM_TRACE(trace_info, "common", "key value = %d, _status before = %ld", static_cast<int>(key),
             status);
    status = log_protocol::get_msg_status(handle.get());
    KM_TRACE(trace_info, "common", "_status after = %ld", status);
    return handle;
}

} // namespace

void report::do_log(pathname* status_dir, unsigned long key) {
    KM_TRACE_FUNCTION("report::do_log");
    if (!protocol_)
        return;
    if (!status_dir) {
        KM_TRACE(trace_info, "common", "Status directory not passed");
        protocol_->do_log(status, nullptr);
        return;
    }
    const pathname path = *status_dir + ustring(std::to_string(key).c_str());
    KM_TRACE(trace_info, "common", "Using status_file %s", path.mbcs_str());
    const auto handle = open_status_file(path, status, key);
    protocol_->do_log(status, handle.get());
}

} // namespace km
