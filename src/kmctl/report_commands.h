// report_commands: the commands on reports and notices
#pragma once

#include "life_commands.h"
#include "report_queries.h"

namespace kmctl {

struct report_arguments {
    kmhost::report_selection selection;
    std::string id;
    bool clears = false;
    long wait_seconds = 30;
};

void add_report_commands(CLI::App& app, report_arguments& given, const choose_command& choose);

} // namespace kmctl
