// inventory_data: what an inventory scan looks for
// no format
// invariant: a skipped path is listed once
#include "inventory_data.h"

namespace km {

void znp_inv_data::add_skipped(const pathname& path) { skipped_.put(path.get_text(), ustring()); }

void znp_inv_data::get_all_skipped(ustring& text) {
    text = ustring();
    Keyslist entries(skipped_);
    while (HashtableEntry* one = entries.next_entry())
        if (const auto* path = dynamic_cast<const ustring*>(one->get_key()))
            text += *path + ustring(u"\n");
}

} // namespace km
