// command_filter: what decides which commands a partial operation keeps
#pragma once

#include <ctime>

namespace km {

class cm_command;
class cm_composite_command;
class cm_object;

// Answers yes or no for an object or a command.
class filter_command_algorithm {
  public:
    virtual ~filter_command_algorithm() = default;
    virtual int operator()(cm_object& object) = 0;
    virtual int operator()(cm_command& command) = 0;
};

// Keeps nothing.
class empty : public filter_command_algorithm {
  public:
    int operator()(cm_object&) override { return 0; }
    int operator()(cm_command&) override { return 0; }
};

// Runs a verify action on each command; yes if it is good, or not to be asked. Clones of those that
// fail go into `failed` (lent, may be null).
class verify_operation : public filter_command_algorithm {
  public:
    verify_operation(cm_composite_command* into, int of_action, int in_phase)
        : failed(into), action(of_action), phase(in_phase) {}
    int operator()(cm_object&) override { return 0; }
    int operator()(cm_command& command) override;

    cm_composite_command* failed;
    int action;
    int phase;
};

// Objects that changed on the machine after a time; told in the objects' band.
class detect_changes_after_time : public filter_command_algorithm {
  public:
    explicit detect_changes_after_time(std::time_t since) : time(since) {}
    int operator()(cm_object& object) override;
    int operator()(cm_command&) override { return 0; }

    std::time_t time;
};

// Objects that are not as their definition says, and commands that ask to be run again; told in the
// objects' band.
class detect_any_change : public filter_command_algorithm {
  public:
    int operator()(cm_object& object) override;
    int operator()(cm_command& command) override;
};

} // namespace km
