// object_filter: filters that look at objects
// no format
// invariant: nothing on the machine is changed
#include "command_filter.h"
#include "object.h"

namespace km {

int detect_changes_after_time::operator()(cm_object& object) {
    return std::difftime(object.load_modification_time(), time) > 0;
}

int detect_any_change::operator()(cm_object& object) { return !object.is_identical(p_do); }

int detect_any_change::operator()(cm_command& command) { return command.is_to_be_reexecuted(); }

} // namespace km
