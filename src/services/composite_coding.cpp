// composite_coding: coded form of composite commands
// format: docs/formats/package-file.md
// invariant: every child comes from the stream for the first time and is a command
#include "codec.h"
#include "composite_command.h"

#include <memory>

namespace km {

const char* cm_composite_command::codable_name() const {
    return "com.ombrel.sd.cmObjects.CmCompositeCommand";
}

void cm_composite_command::encode_object(encoder& to) const {
    cm_command::encode_object(to);
    to.encode_boolean_field(200, stop_on_failure);
    list_iterator all(children);
    to.encode_iterator(201, &all);
}

codable* cm_composite_command::decode_object(decoder& from, long stream_version) {
    cm_command::decode_object(from, stream_version);
    from.decode_boolean_field(200, stop_on_failure);
    iterator* read = nullptr;
    from.decode_iterator(201, read);
    std::unique_ptr<iterator> elements(read);
    while (elements && elements->hasMoreElements()) {
        codable* one = elements->nextElement();
        auto* child = from.as<cm_command>(one);
        if (child) {
            children.push_back(child);
            continue;
        }
        from.forget(one);
        delete one;
        from.set_status(decoder::failed);
    }
    return this;
}

extern "C" codable* make_CmCompositeCommand() { return new cm_composite_command(1); }

} // namespace km
