// inspect: verify, repair, preview, explain, who-uses, history
#pragma once

#include "operations.h"

#include <string>

namespace kmhost {

constexpr int exit_differences = 100;

// Compares what stands with what was installed: one line per object that differs, and how. Exit
// code 0, or 100 with differences. An empty target: all packages.
void verify(const operation_request& request, worker_line& line, outcome& result);
// Puts in place again what verify found, from the package file (`file`, or the one that it was
// installed from).
void repair(const operation_request& request, const std::string& file, worker_line& line,
            outcome& result);
// What an install would add, replace and leave alone, with sizes and the room on each file system.
void preview(const operation_request& request, worker_line& line, outcome& result);
// For every command whether it runs, and why.
void explain(const operation_request& request, worker_line& line, outcome& result);
void who_uses(const std::string& path, outcome& result);
// The package's log as operations.
void history(const std::string& target, outcome& result);

} // namespace kmhost
