// init_definition: the first definition of a package, written from a directory tree
#pragma once

#include "outcome.h"

#include <string>

namespace kmhost {

struct init_request {
    std::string source; // the directory that is described
    std::string output; // the definition; "": the directory's name and ".spd", here
    std::string prefix; // where its content goes; may hold $(name). "": /opt and its name
    bool force = false; // an output that is there is replaced
};

// Writes a definition (docs/DEFINITIONS.md) with a stanza for the directory, then for each
// directory in it, each file, each link, and comments that tell what to change. Sources are
// relative to the output where the directory lies beside or below it, else to the directory. The
// output itself, where it lies in the tree, is no part of it. What no definition can name ends it
// with a message that says what: a name that is not UTF-8 or holds "$(", sockets, pipes and
// devices. A failure leaves the output as it was.
void init_definition(const init_request& request, outcome& result);

// A value as a definition takes it: as it stands, or in double quotes with escapes. The text is
// UTF-8.
std::string definition_value(const std::string& text);

} // namespace kmhost
