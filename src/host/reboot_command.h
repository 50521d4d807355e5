// reboot_command: the reboot that packages asked for, by the command that the settings name
//
// Off until "reboot_command" is set. Nobody's session is ended without need: while somebody is
// logged in the reboot waits for as long as the package that is the most patient allows, but for
// one that forces it. A package that asks again and again gets no more than "reboot_limit" of them.
#pragma once

#include "outcome.h"

namespace kmhost {

// What the worker tells the parent: the command, and "NAME=VALUE" lines for its environment.
struct reboot_order {
    std::vector<std::string> words; // none: no reboot
    std::string environment;
};

// Behind a command that may have changed something: whether the machine is rebooted now goes into
// the outcome, with the words for people. In the worker, with the state entered.
void decide_reboot(outcome& result);

// In the parent: takes the order out of the outcome, in front of what is shown.
reboot_order take_reboot_order(outcome& result);

// Runs the command, if there is one, and waits for its end; false: `why` says what went wrong. In
// the parent, when all else is done.
bool run_reboot(const reboot_order& order, std::string& why);

} // namespace kmhost
