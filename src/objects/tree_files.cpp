// tree_files: the files that a tree of commands adds
// no format
// invariant: every file is visited once
#include "tree_files.h"

#include "composite_command.h"
#include "file_object.h"
#include "object_command.h"

namespace km {

void each_file(const cm_composite_command& tree, const std::function<void(const km_file&)>& act) {
    for (list_iterator at(tree.get_children()); at.hasMoreElements();) {
        const auto* command = at.nextElement();
        if (const auto* inner = dynamic_cast<const cm_composite_command*>(command))
            each_file(*inner, act);
        else if (const auto* add = dynamic_cast<const cm_add_object*>(command))
            if (const auto* file = dynamic_cast<const km_file*>(add->object))
                act(*file);
    }
}

} // namespace km
