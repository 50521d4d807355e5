// tree_walk: the leaves of a command tree, in order
#pragma once

#include "composite_command.h"
#include "expression.h"

namespace kmhost {

template <class Visit> void each_leaf(km::cm_composite_command& tree, const Visit& visit) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto* command = static_cast<km::cm_command*>(all.nextElement());
        if (auto* inner = dynamic_cast<km::cm_composite_command*>(command))
            each_leaf(*inner, visit);
        else
            visit(*command);
    }
}

// The same, but commands whose condition is false, or cannot be evaluated, are passed over with all
// that is below them.
template <class Visit> void each_due_leaf(km::cm_composite_command& tree, const Visit& visit) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto* command = static_cast<km::cm_command*>(all.nextElement());
        if (!km::condition(command->condition).evaluate(nullptr))
            continue;
        if (auto* inner = dynamic_cast<km::cm_composite_command*>(command))
            each_due_leaf(*inner, visit);
        else
            visit(*command);
    }
}

} // namespace kmhost
