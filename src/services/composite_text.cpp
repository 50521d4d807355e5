// composite_text: text form of composite commands
// no format
// invariant: a child that came is always added, also where the mix of kinds is refused
#include "base/msg_supp.h"
#include "composite_command.h"
#include "exporter.h"
#include "importer.h"
#include "package.h"

#include <cstring>

namespace km {

bool mixed_package(cm_command& child, int& word) {
    constexpr int container = 1, plain = 2, device = 4;
    const char* kind = child.codable_name();
    if (kind && std::strstr(kind, "CmGenericContainer"))
        word |= container;
    else
        word |= kind && std::strstr(kind, "Device") ? device : plain;
    return (word & plain) && (word & device);
}

void cm_composite_command::import(importer& from) {
    // One word for the whole tree: composites below the root add to it.
    static int kinds_of_tree = 1;
    if (package == this)
        kinds_of_tree = 1;
    cm_command* outer = from.get_container();
    from.set_container(this);
    from.get_boolean("stop_on_failure", &stop_on_failure);
    cm_command::import(from);
    while (cm_command* child = from.next_command()) {
        add(child, nullptr);
        if (mixed_package(*child, kinds_of_tree)) {
            if (from.messages)
                from.messages->add(558L);
            from.flags = importer::mixed;
        }
    }
    from.set_container(outer);
}

void cm_composite_command::export_(exporter& to) const {
    if (to.stanza_context() != ustring(u"corequisite_files")) {
        to.put_boolean("stop_on_failure", stop_on_failure);
        cm_command::export_(to);
    }
    for (list_iterator at(children); at.hasMoreElements();)
        at.nextElement()->export_(to);
}

} // namespace km
