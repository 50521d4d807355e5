// reboot_command: the reboot that packages asked for, by the command that the settings name
//
// Off until "reboot_command" is set. Nobody's session is ended without need: while somebody is
// logged in the reboot waits for as long as the package that is the most patient allows, but for
// one that forces it. A package that asks again and again gets no more than "reboot_limit" of them.
#pragma once

#include "outcome.h"

#include <csignal>
#include <sys/types.h>

namespace kmhost {

// What the worker tells the parent: the command, and "NAME=VALUE" lines for its environment.
struct reboot_order {
    std::vector<std::string> words; // none: no reboot
    std::string environment;
};

// Behind a command that may have changed something: whether the machine is rebooted now goes into
// the outcome, with the words for people. In the worker, with the state entered.
void decide_reboot(outcome& result);

// The command at work. In the parent, when all else is done but what is shown: a fault that is
// known in time belongs to the outcome, and one that takes the machine down at once must not keep
// what is shown from being so.
class reboot_run {
  public:
    // Takes the order out of the outcome and starts its command, if there is one.
    explicit reboot_run(outcome& result);
    ~reboot_run();
    reboot_run(const reboot_run&) = delete;
    reboot_run& operator=(const reboot_run&) = delete;

    // Waits for the end of the command, so many seconds at most (-1: without a limit), and a second
    // at most once this process is asked to end (SIGTERM, SIGINT). False: `why` says what went
    // wrong; told once.
    bool is_good_within(long seconds, std::string& why);

  private:
    bool wait_until(long seconds, int& status);

    reboot_order order_;
    pid_t child_ = 0; // 0: none, or it has ended; -1: it could not be started
    int fork_error_ = 0;
    sigset_t before_; // the mask of signals
    bool is_asked_to_end_ = false;
};

} // namespace kmhost
