// bulk_list: which data file belongs to which bulk report
//
// The text file "bulk.lst" in the working directory. No lock. The page of the format:
// docs/formats/bulk-list.md.
#pragma once

#include "pathname.h"

namespace km {

// The path that stands behind the key, empty if there is none. The first line that matches
// "*" + key + "*" counts, so a key that stands inside an earlier line finds that line.
pathname get_bulk_file_name(const ustring& key);
// Adds a line at the end. 1, or 0 if the file could not be written; then it is as it was.
int set_bulk_file_name(const ustring& key, const ustring& path);
// Takes out the line that get_bulk_file_name() would find; the last one takes the file with it.
// 1, or 0 if there is none or the file could not be written.
int remove_bulk_file_name(const ustring& key);

} // namespace km
