// operations: install and remove
#pragma once

#include "outcome.h"
#include "worker.h"

#include <string>
#include <vector>

namespace kmhost {

struct operation_request {
    std::string target;                   // package file, or NAME[^VERSION]
    std::vector<std::string> definitions; // NAME=VALUE
    bool force = false;
    bool dry_run = false;
    long wait_seconds = 30;
};

// Both run in a worker. The catalog is locked while they do.
void install(const operation_request& request, worker_line& line, outcome& result);
void remove(const operation_request& request, worker_line& line, outcome& result);

} // namespace kmhost
