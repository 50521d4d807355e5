// report_writer: the message with the report of an operation
//
// A report is written when an operation has come to its end, in front of the intent's removal; the
// message's name is in the intent before it is written. So a kill leaves an operation that is
// still to be ended, or one that is reported. What is pending is reported at its end; what found
// nothing to do is not. Without a channel to deliver to nothing is written.
#pragma once

#include "intent.h"
#include "outcome.h"

#include <string>

namespace kmhost {

// The id under which the reports of this process are filed; empty: each gets its own key.
void set_distribution(const std::string& id);

// The operation whose intent stands has ended with `result`: writes its report, and drops the
// intent. A report that cannot be written is a warning of the result.
void end_run(const package_id& id, outcome& result);

// The same for an operation of another run, which had ended and was cut behind its end.
void end_cut_run(const intent& cut, const std::string& text);

// Whether the report of the operation is written: only the removal of the intent was cut.
bool is_reported(const intent& what);

// The report of a command that ended in front of its intent, or has none: "refused", "failed", or
// a verify. Nothing if end_run has written one, or `command` is not reported.
void report_command(const std::string& command, const std::string& target, unsigned mode,
                    outcome& result);

// Whether this process has written a report.
bool has_written_report();

} // namespace kmhost
