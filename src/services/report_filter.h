// report_filter: selects reports by distribution, target and logger
#pragma once

#include "vector.h"

namespace km {

// Without an entry it selects every report. What it selects by: log_protocol::test.
class filter {
  public:
    // `delivered` not 0 asks for delivered reports too.
    explicit filter(int delivered = 0) : delivered_too(delivered) {}
    // A null text adds nothing.
    void add_distribution_id(const char* id);
    void add_target_name(const char* name);
    void add_logger_name(const char* name);
    bool empty() const {
        return distribution_ids.empty() && target_names.empty() && logger_names.empty();
    }

    vector distribution_ids; // ustrings
    vector target_names;
    vector logger_names;
    int delivered_too;
};

} // namespace km
