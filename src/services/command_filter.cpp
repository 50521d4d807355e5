// command_filter: what decides which commands a partial operation keeps
// no format
// invariant: a clone that nobody takes is not made
#include "command_filter.h"

#include "composite_command.h"

namespace km {

int verify_operation::operator()(cm_command& command) {
    if (!command.is_to_be_executed())
        return 1;
    command.do_execute(action, phase);
    if (command.result == cm_command::success)
        return 1;
    if (failed)
        failed->add(static_cast<cm_command*>(command.clone()), nullptr);
    return 0;
}

} // namespace km
