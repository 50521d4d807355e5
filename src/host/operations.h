// operations: install, remove, and what follows on them
#pragma once

#include "outcome.h"
#include "worker.h"

#include <string>
#include <vector>

namespace kmhost {

struct operation_request {
    std::string target;                   // package file, its address, or NAME[^VERSION]
    std::vector<std::string> definitions; // NAME=VALUE
    unsigned mode = 0;                    // option bits of km::mode_bit
    bool dry_run = false;
    long wait_seconds = 30;
    bool resuming = false;  // from `resume`: what was cut is this very command
    std::string expected;   // digest that the package file must have; "" any
    bool accepts = false;   // the backup goes once the digest of a stream was right
    bool goes_back = false; // a stream that cannot go on is taken back
};

// All run in a worker. The catalog is locked while they change something; before the first change
// an intent is noted, so that a command that was killed is known.
void install(const operation_request& request, worker_line& line, outcome& result);
void remove(const operation_request& request, worker_line& line, outcome& result);
void commit(const operation_request& request, worker_line& line, outcome& result);
void accept(const operation_request& request, worker_line& line, outcome& result);
void undo(const operation_request& request, worker_line& line, outcome& result);
void rollback(const operation_request& request, worker_line& line, outcome& result);

} // namespace kmhost
