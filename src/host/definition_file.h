// definition_file: text definitions, read and written through the library of their extension
#pragma once

#include "base/msg_supp.h"
#include "outcome.h"
#include "package.h"

#include <memory>
#include <string>

namespace kmhost {

// The package of a definition. Null: `result` says why, with the place of every fault (exit 2 no
// such file, 6 a definition with faults, 1 not to be read or nothing there to read it with).
// `messages` gets the importer's messages and must outlive the package.
std::unique_ptr<km::cm_package> read_definition(const std::string& path, km::spmessage& messages,
                                                outcome& result);

// Adds an importer's messages on the definition at `path`: they begin with their severity and
// place, and a line with a mark may stand behind them.
void take_faults(const km::spmessage& from, const std::string& path, outcome& result);

// Writes the definition of a package, whole or not at all.
bool write_definition(const km::cm_package& package, const std::string& path, outcome& result);

// Sets default variables of a package from texts NAME=VALUE. False: `result` says which is wrong.
bool set_defaults(km::cm_package& package, const std::vector<std::string>& variables,
                  outcome& result);

} // namespace kmhost
