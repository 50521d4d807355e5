// object_messages: what the objects tell people
#pragma once

#include <string>

namespace km {

class cm_package;

// Keys of the objects' own message table; its name stands at index 0.
enum object_message : long {
    om_failed = 1,   // what, path, reason
    om_no_room,      // directory, needed, free
    om_digest,       // path
    om_no_data,      // path
    om_stream,       // path
    om_undefined,    // path
    om_is_directory, // path
    om_changed,      // path
    om_special,      // path
    om_not_replaced, // path
    om_not_empty,    // path
    om_no_staged,    // path
    om_newer,        // path
    om_modified,     // path
    om_bad_value,    // line, key, value
    om_no_source,    // path
    om_kept,         // path, path of ours
    om_link_target,  // path, target
    om_program,      // program, why it cannot be run
    om_program_end,  // program, how it ended
    om_bad_text,     // line, key, what is wrong
    om_not_text,     // path, reason
    om_text_fault,   // path, reason
    om_text_gone,    // path, text
    om_text_before,  // path, text
    om_text_held,    // path, text
    object_messages_end
};

extern const char* const object_catalog[];

// Adds a message to the package's list, if there is one.
void tell(cm_package* package, object_message key, const std::string& path,
          const std::string& reason = {}, const std::string& more = {});

// "cannot WHAT: PATH: reason of errno".
void tell_errno(cm_package* package, const char* what, const std::string& path, int error);

} // namespace km
