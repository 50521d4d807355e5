// preview: what a caller applies to each command of a tree
#pragma once

#include "vector.h"

namespace km {

class cm_command;
class output_channel;

// A visitor of commands, for lists and measures of what a package would do.
class preview_operation {
  public:
    virtual ~preview_operation() = default;
    virtual void operator()(cm_command& command) = 0;

    int mark = 0;
};

// Adds up the bytes of data.
class estimate_size : public preview_operation {
  public:
    void operator()(cm_command& command) override;
    long total = 0;
};

// Lists the names. With `mark` the commands give them in their preview form.
class preview_all : public preview_operation {
  public:
    explicit preview_all(vector* into) : names(into) {}
    void operator()(cm_command& command) override;
    vector* names; // lent: new ustrings
};

// Writes the names, a line each; a command without a name gives an empty line.
class preview_only : public preview_operation {
  public:
    explicit preview_only(output_channel* to) : output(to) {}
    void operator()(cm_command& command) override;
    output_channel* output; // lent
};

} // namespace km
