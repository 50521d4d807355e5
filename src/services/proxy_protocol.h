// proxy_protocol: coded stand-in for a protocol that the delivering side makes
#pragma once

#include "log_protocol.h"

#include <memory>

namespace km {

// Travels with a report and says which kind of protocol it wants. At its first use on the
// delivering side it asks the factory for the real one, gives it all fields and forwards to it;
// do_log deletes the real one again. Without a factory, or when that makes nothing, it traces and
// does nothing, so that the report stays to be delivered.
//
// Coded form: the base's form alone; report::init_protocol restores the fields.
class proxy_log_protocol : public log_protocol {
  public:
    proxy_log_protocol();
    // The copy has no delegate yet.
    proxy_log_protocol(const proxy_log_protocol& other);
    proxy_log_protocol& operator=(const proxy_log_protocol&) = delete;
    ~proxy_log_protocol() override;

    codable* clone() const override { return new proxy_log_protocol(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    void to_text(filter& by, ustring_writer& to, formatter& form, long status) override;
    void do_log(long& status) override { do_log(status, nullptr); }
    void do_log(long& status, file_handle* file) override;
    void initialize(long operation_type, long operation_mode, const ustring& endpoint_name,
                    const ustring& endpoint_id, const ustring& endpoint_guid,
                    const ustring& spo_oid, const ustring& base_name, const ustring& base_version,
                    const ustring& base_oid, const ustring& origin_user, const ustring& exec_time,
                    const ustring& user_name, const ustring& message, const ustring& exit_codes_msg,
                    long state, const ustring& distribution_id, const ustring& name,
                    const ustring& version, const ustring& spname, const pathname& path,
                    int exception, int primary, codable* opt_params) override;
    void set_factory(log_protocol_factory* factory) override { factory_ = factory; }
    void get_logger_name(ustring& logger_name) override;
    void get_listeners(long status, ustring& delivered, ustring& pending) override;
    // A new protocol, the caller's; null in the base.
    virtual log_protocol* make_protocol() { return nullptr; }

  protected:
    log_protocol_factory* get_factory() const { return factory_; }

  private:
    log_protocol* delegate();

    std::unique_ptr<log_protocol> delegate_;
    log_protocol_factory* factory_ = nullptr;
};

} // namespace km
