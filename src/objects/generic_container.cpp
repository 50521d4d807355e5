// generic_container: a group of commands with a condition
// format: docs/formats/package-file.md
// invariant: it adds nothing to what a composite does but its text form
#include "generic_container.h"

#include "exporter.h"
#include "importer.h"

namespace km {

const char* km_generic_container::codable_name() const {
    return "com.ombrel.sd.cmObjects.KmCmGenericContainer";
}

void km_generic_container::import(importer& from) {
    from.get_string("caption", &caption);
    outer = from.get_container();
    cm_composite_command::import(from);
    outer = nullptr;
}

void km_generic_container::export_(exporter& to) const {
    to.begin_stanza("generic_container");
    if (!caption.empty())
        to.put_string("caption", caption);
    if (scope == 2)
        to.put_boolean("is_per_user", 1);
    cm_composite_command::export_(to);
    to.end_stanza();
}

ustring km_generic_container::get_name() {
    return caption.empty() ? ustring(u"container") : caption;
}

extern "C" codable* make_KmCmGenericContainer() { return new km_generic_container; }

} // namespace km
