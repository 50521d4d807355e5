// tree_files: the files that a tree of commands adds
// no format
// invariant: every file is visited once
#include "tree_files.h"

#include "composite_command.h"
#include "directory_object.h"
#include "kept_file_object.h"
#include "object_commands.h"

#include <typeinfo>

namespace km {

namespace {
// Files of the one class that most of them have are told by it: casts cost more than the rest.
const km_file* plain_file_of(const cm_command& command) {
    const auto* add = dynamic_cast<const km_add_command*>(&command);
    const cm_object* object = add ? add->object : nullptr;
    return object && typeid(*object) == typeid(km_file) ? static_cast<const km_file*>(object)
                                                        : nullptr;
}
} // namespace

void each_file(const cm_composite_command& tree, const std::function<void(const km_file&)>& act,
               const std::function<void()>& other) {
    for (list_iterator at(tree.get_children()); at.hasMoreElements();) {
        const auto* command = static_cast<const cm_command*>(at.nextElement());
        if (const km_file* plain = plain_file_of(*command)) {
            act(*plain);
            continue;
        }
        if (const auto* inner = dynamic_cast<const cm_composite_command*>(command)) {
            each_file(*inner, act, other);
            continue;
        }
        const auto* add = dynamic_cast<const cm_add_object*>(command);
        const cm_object* object = add ? add->object : nullptr;
        const auto* file = dynamic_cast<const km_file*>(object);
        const bool plain = file ? !dynamic_cast<const km_kept_file*>(object)
                                : dynamic_cast<const km_directory*>(object) != nullptr;
        if (!plain && other)
            other();
        if (file)
            act(*file);
        if (!plain && file && other)
            other();
    }
}

} // namespace km
