// command_coding: coded and text form of commands
// format: docs/formats/package-file.md
// invariant: a stream cannot give a command a package that is not the one around it
#include "base/msg_supp.h"
#include "codec.h"
#include "command.h"
#include "exporter.h"
#include "expression.h"
#include "importer.h"
#include "package.h"

#include <string>

namespace km {

void cm_command::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_object_field(100, package);
    to.encode_boolean_field(101, executed);
    to.encode_string_field(102, condition);
    to.encode_integer_field(103, result);
    to.encode_string_field(104, caption);
    to.encode_integer_field(105, scope);
    to.encode_boolean_field(106, execute_in_commit);
    to.encode_integer_field(107, command_index);
}

namespace {
// The field is a back reference to the root. An object that it brings along itself would belong to
// nobody.
void decode_package(decoder& from, cm_package*& package) {
    codable* object = nullptr;
    from.decode_object_field(100, object);
    if (!object)
        return;
    if (!from.was_reference()) {
        from.set_status(decoder::failed);
        from.forget(object);
        delete object;
        return;
    }
    if (auto* root = from.as<cm_package>(object))
        package = root;
}
} // namespace

codable* cm_command::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    decode_package(from, package);
    from.decode_boolean_field(101, executed);
    // A condition is evaluated later, with the variables of that time.
    variable_list* const variables = from.variables;
    from.variables = nullptr;
    from.decode_string_field(102, condition);
    from.variables = variables;
    std::int32_t code = result;
    from.decode_integer_field(103, code);
    result = static_cast<enum result>(code);
    from.decode_string_field(104, caption);
    from.decode_integer_field(105, scope);
    from.decode_boolean_field(106, execute_in_commit);
    from.decode_integer_field(107, command_index);
    return this;
}

void cm_command::import(importer& from) {
    if (from.get_string("condition", &condition)) {
        expression parsed(condition);
        if (!condition.empty() && !parsed.infix2postfix()) {
            if (from.messages)
                from.messages->add(185L, std::to_string(from.line_number()).c_str(),
                                   parsed.error.mbcs_str());
            from.flags = importer::bad_condition;
        }
    }
    int per_user = 0;
    from.get_boolean("is_per_user", &per_user);
    scope = per_user ? 2 : 1;
}

void cm_command::export_(exporter& to) const { to.put_string("condition", condition); }

} // namespace km
