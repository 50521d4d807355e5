// tree_scan: what a directory holds, as a package can take it
#pragma once

#include "outcome.h"

#include <string>
#include <vector>

namespace kmhost {

enum class tree_kind { directory, file, link };

struct tree_entry {
    std::string path; // below the scanned directory, "" for that itself
    tree_kind what;
    unsigned mode = 0;
};

// All that lies below `source`, in path order: parents before children, and a directory's contents
// together. False, and `result` says why, where it cannot be read, or holds what no package can
// take: a socket, a device or a pipe, or a name with "$(".
bool scan_tree(const std::string& source, std::vector<tree_entry>& all, outcome& result);

} // namespace kmhost
