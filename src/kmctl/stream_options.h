// stream_options: packages from servers, and what is done where the line breaks
#pragma once

#include "operations.h"
#include "options.h"
#include "worker.h"

#include <CLI/CLI.hpp>

#include <string>

namespace kmctl {

struct stream_arguments {
    long retries = 3;    // in a row, without a byte more
    long retry_wait = 2; // seconds; doubled each time
    std::string on_change = "keep";
};

// --expect-sha256, --on-change, --retries and --retry-wait of a command that takes a package file.
void add_stream_options(CLI::App& command, stream_arguments& given,
                        kmhost::operation_request& operation);
// --retries and --retry-wait alone.
void add_retry_options(CLI::App& command, stream_arguments& given);

// What of them was given wrongly; "" if nothing was.
std::string fault_of_stream(kmhost::operation_request& operation);

// Runs the body in a worker, and again after a growing pause where its stream was lost. A file that
// has changed meanwhile is taken back, if that was wished.
kmhost::outcome run_with_retries(const global_options& options, const stream_arguments& given,
                                 const kmhost::worker_body& body,
                                 const kmhost::worker_body& before_each,
                                 const kmhost::progress_watcher& watch, kmhost::worker_end& end);

} // namespace kmctl
