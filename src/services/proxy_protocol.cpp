// proxy_protocol: coded stand-in for a protocol that the delivering side makes
// format: docs/formats/report.md
// invariant: the delegate, while there is one, has the fields of its proxy
#include "proxy_protocol.h"

#include "codec.h"
#include "trclog.h"

namespace km {

proxy_log_protocol::proxy_log_protocol() = default;
proxy_log_protocol::proxy_log_protocol(const proxy_log_protocol& other)
    : log_protocol(other), factory_(other.factory_) {}
proxy_log_protocol::~proxy_log_protocol() = default;

const char* proxy_log_protocol::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmProxyLogProtocol";
}

codable* proxy_log_protocol::decode_object(decoder& from, long stream_version) {
    return codable::decode_object(from, stream_version);
}

void proxy_log_protocol::encode_object(encoder& to) const { codable::encode_object(to); }

void proxy_log_protocol::initialize(
    long type, long mode, const ustring& endpoint, const ustring& its_id, const ustring& its_guid,
    const ustring& object_id, const ustring& base, const ustring& version_of_base,
    const ustring& id_of_base, const ustring& origin, const ustring& time, const ustring& user,
    const ustring& text, const ustring& exit_codes, long state_word, const ustring& distribution,
    const ustring& package, const ustring& package_version, const ustring& package_spname,
    const pathname& data, int is_exception, int is_primary, codable* further) {
    log_protocol::initialize(type, mode, endpoint, its_id, its_guid, object_id, base,
                             version_of_base, id_of_base, origin, time, user, text, exit_codes,
                             state_word, distribution, package, package_version, package_spname,
                             data, is_exception, is_primary, further);
}

log_protocol* proxy_log_protocol::delegate() {
    KM_TRACE_FUNCTION("proxy_log_protocol::delegate");
    if (delegate_)
        return delegate_.get();
    KM_TRACE(trace_info, "common", "initialize!!");
    delegate_.reset(make_protocol());
    if (delegate_)
        hand_over(*delegate_);
    else
        KM_TRACE(trace_error, "common", "no protocol for %s", codable_name());
    return delegate_.get();
}

void proxy_log_protocol::to_text(filter& by, ustring_writer& to, formatter& form, long status) {
    if (auto* real = delegate())
        real->to_text(by, to, form, status);
}

void proxy_log_protocol::do_log(long& status, file_handle* file) {
    KM_TRACE_FUNCTION("proxy_log_protocol::do_log");
    if (auto* real = delegate()) {
        KM_TRACE(trace_info, "common", "before logging");
        real->do_log(status, file);
    }
    delegate_.reset();
}

void proxy_log_protocol::get_logger_name(ustring& logger_name) {
    if (auto* real = delegate())
        real->get_logger_name(logger_name);
}

void proxy_log_protocol::get_listeners(long status, ustring& delivered, ustring& pending) {
    if (auto* real = delegate())
        real->get_listeners(status, delivered, pending);
}

} // namespace km

extern "C" km::codable* make_CmProxyLogProtocol() { return new km::proxy_log_protocol; }
