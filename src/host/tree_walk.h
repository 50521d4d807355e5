// tree_walk: the leaves of a command tree, in order
#pragma once

#include "composite_command.h"
#include "expression.h"
#include "km_object.h"
#include "object_command.h"
#include "program_command.h"

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

// The files, directories and links of a package, and the files that it brings for its programs.
template <class Visit> void each_placed_object(km::cm_composite_command& tree, const Visit& visit) {
    each_leaf(tree, [&visit](km::cm_command& command) {
        if (auto* program = dynamic_cast<km::program_command*>(&command);
            program && program->files.tree())
            each_placed_object(*program->files.tree(), visit);
        auto* on = dynamic_cast<km::cm_object_command*>(&command);
        if (auto* object = on ? dynamic_cast<km::km_object*>(on->object) : nullptr)
            visit(*object);
    });
}

// As each_leaf, but commands whose condition is false, or cannot be evaluated, are passed over with
// all that is below them.
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
