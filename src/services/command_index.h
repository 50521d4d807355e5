// command_index: running number of commands
#pragma once

#include <cstdint>

namespace km {

// Gives every command that is made in this process a number of its own. It ties a command to the
// command of a backup package that undoes it, also over save and load.
class global_index {
  public:
    // Counts on and returns the one counter: the first call gives 0. Past the greatest number it
    // begins again at 0.
    static const global_index& instance();
    std::int32_t value() const { return value_; }

  private:
    global_index() = default;
    std::int32_t value_ = -1;
};

} // namespace km
