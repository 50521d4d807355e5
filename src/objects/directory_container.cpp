// directory_container: a directory with what is put into it, or taken out of it
// format: docs/formats/package-file.md
// invariant: the directory has a command of its own among the children, and its text only once
#include "directory_container.h"

#include "command_on.h"
#include "directory_object.h"
#include "exporter.h"
#include "generic_container.h"
#include "importer.h"
#include "object_commands.h"

namespace km {

namespace {
constexpr command_names add_directory{"com.ombrel.sd.cmObjects.KmAddContainerDirectory", ""};
constexpr command_names remove_directory{"com.ombrel.sd.cmObjects.KmRemoveContainerDirectory", ""};
using add_command = command_on<km_add_command, km_directory, add_directory>;
using remove_command = command_on<km_remove_command, km_directory, remove_directory>;

cm_object* copy_of(const cm_object* object) { return static_cast<cm_object*>(object->clone()); }

// The one that was loaded tells more than the container's.
const cm_object* directory_of(const cm_object_container& container) {
    auto& tree = const_cast<cm_object_container&>(container);
    for (list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto* command = all.nextElement();
        if (auto* add = dynamic_cast<add_command*>(command))
            return add->object;
        if (auto* remove = dynamic_cast<remove_command*>(command))
            return remove->object;
    }
    return container.object;
}

void export_directory(const cm_object_container& container, exporter& to) {
    if (const auto* directory = directory_of(container))
        directory->export_(to);
    constexpr int per_user = 2;
    if (container.scope == per_user)
        to.put_boolean("is_per_user", 1);
}
} // namespace

ustring path_in_container(importer& from, const ustring& path) {
    const cm_command* around = from.get_container();
    while (const auto* group = dynamic_cast<const km_generic_container*>(around))
        around = group->outer;
    const auto* container = dynamic_cast<const cm_object_container*>(around);
    const auto* directory =
        container ? dynamic_cast<const km_directory*>(container->object) : nullptr;
    const auto stands_alone = [](const ustring& text) {
        return text[0] == u'/' || text.substr(0, 2) == ustring(u"$(");
    };
    if (!directory || path.empty() || stands_alone(path) || !stands_alone(directory->path))
        return path;
    const bool ends = directory->path[directory->path.length() - 1] == u'/';
    return directory->path + ustring(ends ? u"" : u"/") + path;
}

km_add_container::km_add_container() : cm_add_object_container(new km_directory) {}

const char* km_add_container::codable_name() const {
    return "com.ombrel.sd.cmObjects.KmAddContainer";
}

void km_add_container::import(importer& from) {
    from.set_add_mode(1);
    object->import(from);
    add(new add_command(copy_of(object)), nullptr);
    cm_composite_command::import(from);
}

void km_add_container::export_(exporter& to) const {
    to.begin_stanza("add_container");
    export_directory(*this, to);
    cm_add_object_container::export_(to);
    to.end_stanza();
}

km_remove_container::km_remove_container() : cm_remove_object_container(new km_directory) {}

const char* km_remove_container::codable_name() const {
    return "com.ombrel.sd.cmObjects.KmRemoveContainer";
}

void km_remove_container::import(importer& from) {
    from.set_add_mode(0);
    object->import(from);
    cm_composite_command::import(from);
    children.reverse();
    add(new remove_command(copy_of(object)), nullptr);
}

// The base turns the children round for their text, and leaves them so.
void km_remove_container::export_(exporter& to) const {
    to.begin_stanza("remove_container");
    export_directory(*this, to);
    cm_remove_object_container::export_(to);
    const_cast<km_remove_container*>(this)->children.reverse();
    to.end_stanza();
}

extern "C" codable* make_KmAddContainer() { return new km_add_container; }
extern "C" codable* make_KmRemoveContainer() { return new km_remove_container; }
extern "C" codable* make_KmAddContainerDirectory() { return new add_command(nullptr); }
extern "C" codable* make_KmRemoveContainerDirectory() { return new remove_command(nullptr); }

} // namespace km
