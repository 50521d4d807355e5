// preview: what a caller applies to each command of a tree
// no format
// invariant: a visit changes nothing of a command but its preview mark
#include "preview.h"

#include "channel.h"
#include "command.h"

#include <cstring>

namespace km {

void estimate_size::operator()(cm_command& command) { total += command.get_size(); }

void preview_all::operator()(cm_command& command) {
    if (mark)
        command.preview_selected = 1;
    names->push_back(new ustring(command.get_name()));
}

void preview_only::operator()(cm_command& command) {
    const ustring name = command.get_name();
    const char* bytes = name.mbcs_str();
    output->write(reinterpret_cast<const unsigned char*>(bytes),
                  static_cast<int>(std::strlen(bytes)));
    output->write('\n');
}

} // namespace km
