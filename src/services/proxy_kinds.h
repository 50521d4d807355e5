// proxy_kinds: the kinds of proxies, one for each maker
#pragma once

#include "log_protocol_factory.h"
#include "proxy_protocol.h"

namespace km {

using protocol_maker = log_protocol* (log_protocol_factory::*)();

// What the kinds differ in: the coded name and the maker. A kind may stand on another one.
template <class Kind, class Base> class proxy_kind : public Base {
  public:
    codable* clone() const override { return new Kind(static_cast<const Kind&>(*this)); }
    const char* codable_name() const override { return Kind::cod_name; }
    log_protocol* make_protocol() override {
        return this->get_factory() ? (this->get_factory()->*Kind::maker)() : nullptr;
    }
};

class proxy_standard_log_protocol
    : public proxy_kind<proxy_standard_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyStandardLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_standard_log_protocol;
};

class proxy_bulk_log_protocol : public proxy_kind<proxy_bulk_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyBulkLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_bulk_log_protocol;
};

class proxy_delete_db_entries : public proxy_kind<proxy_delete_db_entries, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyDeleteDbEntries";
    static constexpr protocol_maker maker = &log_protocol_factory::make_delete_db_entries;
};

class proxy_delete_db_entry : public proxy_kind<proxy_delete_db_entry, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyDeleteDbEntry";
    static constexpr protocol_maker maker = &log_protocol_factory::make_delete_db_entry;
};

class proxy_add_db_entry : public proxy_kind<proxy_add_db_entry, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyAddDbEntry";
    static constexpr protocol_maker maker = &log_protocol_factory::make_add_db_entry;
};

class proxy_edit_db_entry : public proxy_kind<proxy_edit_db_entry, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyEditDbEntry";
    static constexpr protocol_maker maker = &log_protocol_factory::make_edit_db_entry;
};

class proxy_ext_log_protocol : public proxy_kind<proxy_ext_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyExtLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_ext_log_protocol;
};

class proxy_dm_log_protocol : public proxy_kind<proxy_dm_log_protocol, proxy_ext_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyDMLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_dm_log_protocol;
};

class proxy_inventory_log_protocol
    : public proxy_kind<proxy_inventory_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyInventoryLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_inventory_log_protocol;
};

class proxy_gw_protocol : public proxy_kind<proxy_gw_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxySendAnEvent";
    static constexpr protocol_maker maker = &log_protocol_factory::make_gw_protocol;
};

class proxy_post_log_protocol
    : public proxy_kind<proxy_post_log_protocol, proxy_standard_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyPostLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_post_log_protocol;
};

class proxy_publish : public proxy_kind<proxy_publish, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyPublish";
    static constexpr protocol_maker maker = &log_protocol_factory::make_publish;
};

class proxy_vfan2_db_log_protocol
    : public proxy_kind<proxy_vfan2_db_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmVfan2DBLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_vfan2_db_log_protocol;
};

class proxy_web_protocol : public proxy_kind<proxy_web_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyWebProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_web_protocol;
};

class proxy_device_log_protocol : public proxy_kind<proxy_device_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyDeviceLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_device_log_protocol;
};

class proxy_versioning_log_protocol
    : public proxy_kind<proxy_versioning_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmProxyVersioningLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_versioning_log_protocol;
};

class proxy_discover_log_protocol
    : public proxy_kind<proxy_discover_log_protocol, proxy_log_protocol> {
  public:
    static constexpr const char* cod_name = "com.ombrel.sd.cmObjects.CmDiscoverLogProtocol";
    static constexpr protocol_maker maker = &log_protocol_factory::make_discover_log_protocol;
};

} // namespace km
