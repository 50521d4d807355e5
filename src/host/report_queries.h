// report_queries: what waits to be delivered, and the notices, for people
#pragma once

#include "outcome.h"

#include <string>
#include <vector>

namespace kmhost {

// Without an entry every report is meant.
struct report_selection {
    std::vector<std::string> distributions; // "ID" or "REGION.ID"
    std::vector<std::string> targets;       // endpoint names
    std::string id;                         // key of one report, or the file of its message
    bool only_undelivered = false;
    std::string form;      // template of a line; "": the own form
    bool all = false;      // for a removal that names nothing else
    bool with_data = true; // of a list; else only its text is told
};

// Reports whose message is still there: those that a channel has not got, and with
// `only_undelivered` false also those that are delivered and were not cleared away yet. Takes no
// lock, and changes nothing.
void list_reports(const report_selection& wanted, outcome& result);
void show_report(const std::string& id, outcome& result);
// Gives up what is selected: no channel gets it any more. Waits for a delivery under way.
void remove_reports(const report_selection& wanted, long wait_seconds, outcome& result);

void show_notices(outcome& result);
// All of them for an empty id.
void clear_notices(const std::string& id, outcome& result);

} // namespace kmhost
