// object_container: composites that stand for a container of objects
// format: docs/formats/package-file.md
// invariant: a container owns one object at most, and no data pass through it
#include "object_container.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"

namespace km {

namespace {
cm_object* copy_of(const cm_object* one) {
    return one ? static_cast<cm_object*>(one->clone()) : nullptr;
}
} // namespace

cm_object_container::cm_object_container(const cm_object_container& other)
    : cm_composite_command(other), object(copy_of(other.object)) {}

cm_object_container& cm_object_container::operator=(const cm_object_container& other) {
    if (this == &other)
        return *this;
    cm_composite_command::operator=(other);
    delete object;
    object = copy_of(other.object);
    return *this;
}

void cm_object_container::encode_object(encoder& to) const {
    cm_composite_command::encode_object(to);
    to.encode_object_field(300, object);
}

codable* cm_object_container::decode_object(decoder& from, long stream_version) {
    cm_composite_command::decode_object(from, stream_version);
    delete object;
    object = from.take_owned<cm_object>(300);
    return this;
}

void cm_object_container::import(importer& from) {
    from.set_add_mode(is_add());
    if (object)
        object->import(from);
    cm_composite_command::import(from);
    if (object && !object->condition.empty()) {
        condition = object->condition;
        object->condition = ustring();
    }
}

bool cm_object_container::has_no_object() {
    if (!object)
        result = failure;
    return !object;
}

void cm_object_container::can_execute(int action, int phase) {
    if (!has_no_object())
        cm_composite_command::can_execute(action, phase);
}

void cm_object_container::do_execute(int action, int phase) {
    if (!has_no_object())
        cm_composite_command::do_execute(action, phase);
}

void cm_object_container::can_backup(int action) {
    if (!has_no_object())
        cm_composite_command::can_backup(action);
}

void cm_object_container::set_package(cm_package* of) {
    if (object)
        object->set_package(of);
    cm_composite_command::set_package(of);
}

void cm_object_container::load_command(const int) { result = success; }
void cm_object_container::save_command(zipping_channel*) { result = success; }
void cm_object_container::delta_save_command(pathname*, unzipping_channel*, zipping_channel*) {
    result = success;
}

const char* cm_add_object_container::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmAddObjectsContainer";
}

void cm_add_object_container::export_(exporter& to) const {
    to.set_add_mode(1);
    cm_composite_command::export_(to);
}

const char* cm_remove_object_container::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmRemoveObjectsContainer";
}

void cm_remove_object_container::export_(exporter& to) const {
    to.set_add_mode(0);
    const_cast<cm_remove_object_container*>(this)->children.reverse();
    cm_composite_command::export_(to);
}

extern "C" codable* make_CmAddObjectsContainer() { return new cm_add_object_container; }
extern "C" codable* make_CmRemoveObjectsContainer() { return new cm_remove_object_container; }

} // namespace km
