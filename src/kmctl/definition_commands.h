// definition_commands: the commands that make packages and definitions
#pragma once

#include "definition_builder.h"
#include "export_definition.h"
#include "init_definition.h"
#include "package_builder.h"
#include "worker.h"

#include <CLI/CLI.hpp>

#include <functional>

namespace kmctl {

struct definition_arguments {
    kmhost::build_request build;
    std::string base;
    kmhost::init_request init;
    kmhost::export_request to_text;
    std::string file;
    std::string lint_base;
};

// What carries a chosen command out, and whether it looks at the state of this machine.
using definition_choice =
    std::function<void(const char* name, bool needs_state, kmhost::worker_body)>;

// Adds build, init, lint and export. `given` must live as long as the application.
void add_definition_commands(CLI::App& app, definition_arguments& given,
                             const definition_choice& choose);

} // namespace kmctl
