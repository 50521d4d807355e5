// lint_findings: names of what lint finds, and the comments that allow it
//
//   # lint: allow NAME[, NAME ...]
//
// alone on its line it holds for the attribute or block that begins next, else for the first one
// that begins on its line; in a block for all that is in it.
#pragma once

#include "definition_tree.h"

#include <map>
#include <vector>

namespace km {

// The name by which a finding can be allowed; null where it cannot.
const char* name_of_finding(import_message key);
std::vector<std::string> names_of_findings();

class allowed_findings {
  public:
    // Adds to `problems` the names that no finding has.
    allowed_findings(const definition_file& file, definition_problems& problems);
    bool allows(import_message key, text_place place) const;

  private:
    struct item {
        text_place from, until; // both within it
    };
    static void collect(const definition_block& block, std::vector<item>& items);
    static const item* item_of(const definition_comment& comment, const std::vector<item>& items);

    static void merge(std::vector<item>& ranges);

    std::map<std::string, std::vector<item>> all_; // by name, apart from each other, in order
};

} // namespace km
