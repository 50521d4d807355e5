// command_index: running number of commands
// no format
// invariant: the counter never goes below 0 once it was asked
#include "command_index.h"

#include <limits>

namespace km {

const global_index& global_index::instance() {
    static global_index the_counter;
    the_counter.value_ =
        the_counter.value_ == std::numeric_limits<std::int32_t>::max() ? 0 : the_counter.value_ + 1;
    return the_counter;
}

} // namespace km
