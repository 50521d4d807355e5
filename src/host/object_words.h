// object_words: what an object is, in words and as JSON
#pragma once

#include "object_command.h"

#include <nlohmann/json.hpp>
#include <string>

namespace kmhost {

// Whether a removal has something to take away; false also for a text that does not stand.
bool stands_to_go(km::cm_object& object);

// What an undo does with the object that it brings back: "bring back", or "remove" for a text that
// did not stand.
const char* restoring_action(km::cm_object& object);

// Keys "path" and, of a text in a file, "kind" and "text".
nlohmann::json object_keys(km::cm_object& object);

// The file or directory that the object changes.
std::string path_of(km::cm_object& object);

} // namespace kmhost
