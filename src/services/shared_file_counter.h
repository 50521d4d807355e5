// shared_file_counter: counts of shared files in a text file
#pragma once

#include "ustring.h"

namespace km {

// Counters per shared file that other systems of a platform keep. This platform has none: nothing
// is counted here, and the answers say so. The counts of packages are the reference count table's.
class shared_file_counter {
  public:
    static void load_table();
    // Doubles the table of pointers.
    static void resize_table();
    static void clear_table() {}
    static int get_counter(const ustring&) { return 0; }
    static int inc_counter(const ustring&, int) { return 1; }
    static void commit() {}
    static unsigned get_table_size() { return table_size_; }

  private:
    static void** table_;
    static unsigned table_size_;
};

} // namespace km
