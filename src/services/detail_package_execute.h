// detail_package_execute: what the steps of execute share
#pragma once

#include "package.h"

#include <memory>

namespace km {

// One run of execute.
struct cm_package::run {
    // Where a resumed run enters, as the profile tells it in `resume_stage`.
    enum stage : int { from_start = 0, from_do = 1, from_accept = 2, from_commit = 3 };

    run(int of_action, int mode_word, int argument)
        : action(of_action), mode(mode_word), call_argument(argument) {}

    int action;
    int mode; // the caller's word, as the checks may change it
    int call_argument;
    int cleanup = 0;                        // phase that cleans up behind the tree's
    int target = 0;                         // status that the operation leads to
    bool warned = false;                    // a warning that the final result must not hide
    cm_result answer = cm_command::success; // what execute returns where it ends early
    pathname old_profile;
    cm_package* profile = nullptr; // whose tree becomes the profile
    std::unique_ptr<cm_package> merged;
};

// An entry as a committed install leaves it.
void reset_to_committed(cm_catalog_entry& entry);

} // namespace km
