// definition_builder: a package file out of a text definition
#pragma once

#include "outcome.h"

#include <string>
#include <vector>

namespace kmhost {

struct definition_request {
    std::string file;   // the definition
    std::string base;   // where relative sources are; empty: the definition's directory
    std::string output; // the package file; replaced whole or not at all
    std::vector<std::string> variables; // NAME=VALUE, in place of the definition's defaults
    bool stored = false;                // data are not compressed
};

// Reads the definition, loads the content that it names and writes the package. References to
// variables in its name, version, title and sources are resolved now; those in all other texts stay
// for the machine that installs. A failed build leaves no file.
void build_from_definition(const definition_request& request, outcome& result);

} // namespace kmhost
