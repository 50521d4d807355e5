// report_event: reports to the system log and, as a POST, to a server
//
// deliver_to_event of report_channels.h. Where both are set up, both must have the report.
#pragma once

#include "report_channels.h"

namespace kmhost {

// The line of the system log: "report KEY: ...", one line of at most 900 bytes, whole characters.
std::string event_line(const report_fields& report);

// LOG_INFO, LOG_WARNING or LOG_ERR, after the first word of the outcome.
int event_priority(const report_fields& report);

} // namespace kmhost
