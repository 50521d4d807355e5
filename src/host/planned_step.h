// planned_step: what one command would do, in plain words
#pragma once

#include "object_command.h"

#include <nlohmann/json.hpp>
#include <string>

namespace kmhost {

struct planned_step {
    std::string action; // "add", "replace", "keep", "remove", "run", "restart" ...; empty: nothing
    std::string path;   // of the object; the program with its arguments; when it restarts
    std::string note;   // more for people; may be empty
    std::string kind;   // of a text in the file `path`: "line" ...; else empty
    std::string words;  // that text

    // "add /opt/x", "add line to /etc/hosts: 127.0.0.1 x".
    std::string text() const;
    // Keys "action", "path"; of a text also "kind" and "text".
    nlohmann::json as_json() const;
};

planned_step step_on(const std::string& action, km::cm_object& object,
                     const std::string& note = "");

// What the command would do in an install, "leave" for an object that stays as it is; the same for
// a command of an undo package. Nothing for other commands than those on objects, programs,
// restarts.
planned_step step_of_install(km::cm_command& command);
// What a program or a restart would do in a remove; nothing for other commands.
planned_step step_of_remove(km::cm_command& command);

} // namespace kmhost
