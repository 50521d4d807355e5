// preview: what a caller applies to each command of a tree
#pragma once

namespace km {

class cm_command;

// A visitor of commands, for lists and measures of what a package would do.
class preview_operation {
  public:
    virtual ~preview_operation() = default;
    virtual void operator()(cm_command& command) = 0;

    int mark = 0;
};

} // namespace km
