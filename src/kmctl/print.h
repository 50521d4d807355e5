// print: the one place where kmctl writes to its two outputs
#pragma once

#include "options.h"
#include "outcome.h"
#include "worker.h"

#include <string>

namespace kmctl {

// With --json exactly one object goes to standard output and nothing else does; else the text of
// the outcome goes there. Messages for people go to standard error: with --quiet errors only,
// with --verbose the ids of messages, too. False: standard output did not take it.
bool print_outcome(const global_options& options, const std::string& command,
                   const kmhost::outcome& result);

// A line of progress on standard error that rewrites itself; empty when none is wanted (not a
// terminal, --quiet, --json, --progress=no).
kmhost::progress_watcher make_progress_line(const global_options& options,
                                            const std::string& command);

// A message for people that cannot wait for the outcome; nothing with --json, whose object has it.
void print_at_once(const global_options& options, const kmhost::message& one);

// Wipes a line of progress that stands on the terminal.
void end_progress_line(const global_options& options);

} // namespace kmctl
