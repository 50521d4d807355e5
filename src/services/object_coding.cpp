// object_coding: coded form of object commands
// format: docs/formats/package-file.md
// invariant: a command owns an object that the stream brought for it alone
#include "codec.h"
#include "object_command.h"
#include "package.h"

namespace km {

void cm_object::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_object_field(100, package);
    to.encode_integer_field(101, ref_count);
    to.encode_boolean_field(102, is_shared);
    to.encode_integer_field(103, sharing_control_count);
}

codable* cm_object::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    codable* root = nullptr;
    from.decode_object_field(100, root);
    if (root && !from.was_reference()) {
        from.set_status(decoder::failed); // a package of its own would belong to nobody
        from.forget(root);
        delete root;
    } else if (auto* of = from.as<cm_package>(root)) {
        package = of;
    }
    from.decode_integer_field(101, ref_count);
    from.decode_boolean_field(102, is_shared);
    from.decode_integer_field(103, sharing_control_count);
    return this;
}

namespace {
// A command that was made for the stream may have an empty object already: an object of the same
// class is read into that one.
void take_object(decoder& from, const cm_command& of, cm_object*& object) {
    auto* read = from.take_owned<cm_object>(200, from.has_just_made(of) ? object : nullptr);
    if (read && read != object) {
        delete object;
        object = read;
    }
}
} // namespace

const char* cm_add_object::codable_name() const { return "com.ombrel.sd.cmObjects.CmAddObject"; }

void cm_add_object::encode_object(encoder& to) const {
    cm_command::encode_object(to);
    to.encode_object_field(200, object);
    to.encode_boolean_field(201, replace_if_existing);
    to.encode_boolean_field(202, replace_if_newer);
    to.encode_boolean_field(203, undo_replace_if_existing);
    to.encode_boolean_field(204, undo_replace_if_newer);
    to.encode_boolean_field(205, undo_remove_if_modified);
    to.encode_boolean_field(206, remove_if_modified);
    to.encode_boolean_field(207, is_effective);
}

codable* cm_add_object::decode_object(decoder& from, long stream_version) {
    cm_command::decode_object(from, stream_version);
    take_object(from, *this, object);
    from.decode_boolean_field(201, replace_if_existing);
    from.decode_boolean_field(202, replace_if_newer);
    from.decode_boolean_field(203, undo_replace_if_existing);
    from.decode_boolean_field(204, undo_replace_if_newer);
    from.decode_boolean_field(205, undo_remove_if_modified);
    from.decode_boolean_field(206, remove_if_modified);
    from.decode_boolean_field(207, is_effective);
    return this;
}

const char* cm_remove_object::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmRemoveObject";
}

void cm_remove_object::encode_object(encoder& to) const {
    cm_command::encode_object(to);
    to.encode_object_field(200, object);
    to.encode_boolean_field(201, is_effective);
    to.encode_boolean_field(203, undo_replace_if_existing);
    to.encode_boolean_field(204, undo_replace_if_newer);
}

codable* cm_remove_object::decode_object(decoder& from, long stream_version) {
    cm_command::decode_object(from, stream_version);
    take_object(from, *this, object);
    from.decode_boolean_field(201, is_effective);
    from.decode_boolean_field(203, undo_replace_if_existing);
    from.decode_boolean_field(204, undo_replace_if_newer);
    return this;
}

extern "C" codable* make_CmAddObject() { return new cm_add_object; }
extern "C" codable* make_CmRemoveObject() { return new cm_remove_object; }

} // namespace km
