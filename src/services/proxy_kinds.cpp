// proxy_kinds: the kinds of proxies, one for each maker
// format: docs/formats/report.md
// invariant: a kind has a coded name and a maker of its own, and nothing else
#include "proxy_kinds.h"

extern "C" km::codable* make_CmProxyStandardLogProtocol() {
    return new km::proxy_standard_log_protocol;
}
extern "C" km::codable* make_CmProxyBulkLogProtocol() { return new km::proxy_bulk_log_protocol; }
extern "C" km::codable* make_CmProxyDeleteDbEntries() { return new km::proxy_delete_db_entries; }
extern "C" km::codable* make_CmProxyDeleteDbEntry() { return new km::proxy_delete_db_entry; }
extern "C" km::codable* make_CmProxyAddDbEntry() { return new km::proxy_add_db_entry; }
extern "C" km::codable* make_CmProxyEditDbEntry() { return new km::proxy_edit_db_entry; }
extern "C" km::codable* make_CmProxyExtLogProtocol() { return new km::proxy_ext_log_protocol; }
extern "C" km::codable* make_CmProxyDMLogProtocol() { return new km::proxy_dm_log_protocol; }
extern "C" km::codable* make_CmProxyInventoryLogProtocol() {
    return new km::proxy_inventory_log_protocol;
}
extern "C" km::codable* make_CmProxySendAnEvent() { return new km::proxy_gw_protocol; }
extern "C" km::codable* make_CmProxyPostLogProtocol() { return new km::proxy_post_log_protocol; }
extern "C" km::codable* make_CmProxyPublish() { return new km::proxy_publish; }
extern "C" km::codable* make_CmVfan2DBLogProtocol() { return new km::proxy_vfan2_db_log_protocol; }
extern "C" km::codable* make_CmProxyWebProtocol() { return new km::proxy_web_protocol; }
extern "C" km::codable* make_CmProxyDeviceLogProtocol() {
    return new km::proxy_device_log_protocol;
}
extern "C" km::codable* make_CmProxyVersioningLogProtocol() {
    return new km::proxy_versioning_log_protocol;
}
extern "C" km::codable* make_CmDiscoverLogProtocol() { return new km::proxy_discover_log_protocol; }
