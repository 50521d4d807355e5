// options: what stands on the command line of kmctl, parsed
#pragma once

#include <string>
#include <vector>

namespace kmctl {

enum class when { automatic, always, never };

struct global_options {
    std::string state; // --state, "" if not given
    std::string root;  // --root, "" if not given
    bool user = false; // packages of the user who calls
    bool json = false;
    bool quiet = false;
    int verbose = 0;
    when progress = when::automatic;
    when color = when::automatic;
    long wait_seconds = 30;   // for the lock; -1 waits for ever
    int trace_level = -1;     // -1: as the settings say
    std::string distribution; // id for the reports of this run, "" for one of its own
    bool reboot_exit_code = false;
};

} // namespace kmctl
