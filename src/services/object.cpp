// object: base of the concrete objects of a host
// no format
// invariant: the defaults change nothing and succeed
#include "object.h"

#include "exporter.h"
#include "importer.h"

namespace km {

void cm_object::set_data_source(ustring, int, pathname*) {}
long cm_object::get_size() { return 0; }
cm_result cm_object::can_read() { return cm_command::success; }
int cm_object::is_newer() { return 0; }
long cm_object::load_modification_time() { return 0; }
int cm_object::get_undo_replace_if_newer() { return 1; }
cm_result cm_object::save(zipping_channel*) { return cm_command::success; }
cm_result cm_object::save(unzipping_channel*, zipping_channel*) { return cm_command::success; }
cm_result cm_object::delta_save(pathname*, unzipping_channel*, zipping_channel*) {
    return cm_command::success;
}
cm_result cm_object::load(int) { return cm_command::success; }
cm_result cm_object::skip_data() { return cm_command::success; }
ustring cm_object::get_name() { return {}; }
ustring cm_object::get_log(int) { return get_name(); }
int cm_object::get_ref_count() { return ref_count; }
void cm_object::set_ref_count(int count) { ref_count = count; }
void cm_object::set_package(cm_package* of) { package = of; }
int cm_object::is_during_a_restart() { return 0; }
void cm_object::set_container(cm_command*) {}

void cm_object::import(importer& from) {
    if (from.is_shared_allowed())
        from.get_boolean("is_shared", &is_shared);
    if (is_shared && ref_count < 1)
        ref_count = 1; // a shared object that counts for nothing would never be counted
}

void cm_object::export_(exporter& to) const {
    if (to.is_shared_allowed())
        to.put_boolean("is_shared", is_shared);
}

} // namespace km
