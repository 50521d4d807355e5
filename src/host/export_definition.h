// export_definition: the text definition of a package file or of an installed package
#pragma once

#include "outcome.h"

#include <string>

namespace kmhost {

struct export_request {
    std::string target; // a package file, or NAME[^VERSION]
    std::string output; // the definition; replaced whole or not at all
    std::string files;  // directory that gets the data, made; empty: none
};

// Writes the definition that `kmctl build` makes the same package of. Data come with `files` only:
// they lie there under the paths of their objects, and the definition names them as sources.
void export_definition(const export_request& request, outcome& result);

} // namespace kmhost
