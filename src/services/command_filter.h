// command_filter: what decides which commands a partial operation keeps
#pragma once

namespace km {

class cm_command;
class cm_object;

// Answers yes or no for an object or a command.
class filter_command_algorithm {
  public:
    virtual ~filter_command_algorithm() = default;
    virtual int operator()(cm_object& object) = 0;
    virtual int operator()(cm_command& command) = 0;
};

} // namespace km
