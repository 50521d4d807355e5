// definition_lint: what is doubtful in a definition that can be read
#pragma once

#include "definition_tree.h"
#include "rule_book.h"

namespace km {

class variable_list;

// Adds to `problems`:
//   a dependency that is no condition
//   references to variables that `variables` does not know, each name once for every value
//   blocks "remove_X" without a block "add_X" of the same object, which would put back what the
//     first one takes away when the package is removed
//   programs for an install without one for the remove
//   files without a source, sources that are not there: below `base`, where they are relative
//   texts for a file that a later block replaces
// but for what a comment allows (lint_findings.h). The conditions of commands are not looked at:
// whoever reads the definition does that.
void lint_blocks(const definition_file& file, const rule_book& book, variable_list& variables,
                 const std::string& base, definition_problems& problems);

} // namespace km

// Reads a definition as an importer does, and then lints it, with sources relative to `base`, or to
// the definition where that is null or empty. Messages of both go to `messages`. 1 if there are
// none, else 0. Found by its name.
extern "C" int lint_definition(const km::pathname* path, const char* base, km::spmessage* messages);
