// log_protocol_factory: makers of the protocols that reach the channels
#pragma once

namespace km {

class log_protocol;

// What the delivering side supplies. Each maker gives a new protocol, which the asking proxy takes
// over; null makes the proxy deliver nothing. The proxies hold it lent.
class log_protocol_factory {
  public:
    virtual log_protocol* make_standard_log_protocol() = 0;
    virtual log_protocol* make_bulk_log_protocol() = 0;
    virtual log_protocol* make_delete_db_entries() = 0;
    virtual log_protocol* make_delete_db_entry() = 0;
    virtual log_protocol* make_add_db_entry() = 0;
    virtual log_protocol* make_edit_db_entry() = 0;
    virtual log_protocol* make_ext_log_protocol() = 0;
    virtual log_protocol* make_dm_log_protocol() = 0;
    virtual log_protocol* make_inventory_log_protocol() = 0;
    virtual log_protocol* make_gw_protocol() = 0;
    virtual log_protocol* make_post_log_protocol() = 0;
    virtual log_protocol* make_publish() = 0;
    virtual log_protocol* make_vfan2_db_log_protocol() = 0;
    virtual log_protocol* make_web_protocol() = 0;
    virtual log_protocol* make_device_log_protocol() = 0;
    virtual log_protocol* make_versioning_log_protocol() = 0;
    virtual log_protocol* make_discover_log_protocol() = 0;
    virtual ~log_protocol_factory() = default;
};

} // namespace km
