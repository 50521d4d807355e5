// report_filter: selects reports by distribution, target and logger
// no format
// invariant: the entries are ustrings
#include "report_filter.h"

#include "ustring.h"

namespace km {

namespace {

void add(vector& to, const char* text) {
    if (text)
        to.push_back(new ustring(text));
}

} // namespace

void filter::add_distribution_id(const char* id) { add(distribution_ids, id); }
void filter::add_target_name(const char* name) { add(target_names, name); }
void filter::add_logger_name(const char* name) { add(logger_names, name); }

} // namespace km
