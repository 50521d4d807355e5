// life_commands: the commands behind install and remove
#pragma once

#include "operations.h"
#include "options.h"
#include "stream_options.h"
#include "worker.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace kmctl {

struct life_arguments {
    kmhost::operation_request operation;
    std::string base, newer, output, file, path;
    bool all = false, back = false, boot = false, undo_prepared = false;
};

// How a command is chosen: its name, whether it only reads, whether its text is the answer that was
// asked for, and what carries it out.
using choose_command = std::function<void(const char* name, bool only_reads, bool only_answers,
                                          kmhost::worker_body body)>;

// commit, accept, undo, rollback, verify, repair, preview, explain, resume, upgrade, delta,
// who-uses, history. `options`, `given` and
// `stream` are lent.
void add_life_commands(CLI::App& app, const global_options& options, life_arguments& given,
                       stream_arguments& stream, const choose_command& choose);

// --force and the like of install and remove, as bits of `mode`.
void add_mode_options(CLI::App& command, unsigned& mode, bool installs);

// Why the bits cannot stand together; empty if they can.
std::string fault_of_mode(unsigned mode);

} // namespace kmctl
