// package_builder: a directory tree as a package file
#pragma once

#include "outcome.h"

#include <string>
#include <vector>

namespace kmhost {

struct build_request {
    std::string source; // the directory to pack
    std::string name;
    std::string version;
    std::string destination; // where its content goes; may hold $(name) references
    std::string output;      // the package file; replaced whole or not at all
    std::string title;
    std::string description;
    std::vector<std::string> variables; // NAME=VALUE, the package's defaults
    std::vector<std::string> shared;    // patterns of paths below the source
    bool stored = false;                // data are not compressed
    bool per_user = false;              // a package of a user's, for --user
};

// Packs the tree: directories before their contents, files in path order, links last. Sockets,
// devices and pipes, and what cannot be read, end the build; a failed build leaves no file.
void build_package_file(const build_request& request, outcome& result);

} // namespace kmhost
