// shared_file_counter: counts of shared files in a text file
// no format: this platform keeps none
// invariant: slots behind the old end of the table are null
#include "shared_file_counter.h"

#include "trclog.h"

#include <algorithm>

namespace km {

void** shared_file_counter::table_ = nullptr;
unsigned shared_file_counter::table_size_ = 0;

void shared_file_counter::load_table() { KM_TRACE_FUNCTION("shared_file_counter::load_table"); }

void shared_file_counter::resize_table() {
    const unsigned size = table_size_ ? table_size_ * 2 : 1;
    auto** bigger = new void*[size]();
    std::copy(table_, table_ + table_size_, bigger);
    delete[] table_;
    table_ = bigger;
    table_size_ = size;
}

} // namespace km
