// intent: what a command is about to do, so that a cut one is known
//
// Written, and flushed, before the first change; removed when the command has ended. An intent that
// is found tells that a command was killed.
#pragma once

#include "outcome.h"
#include "words.h"

#include <optional>
#include <string>
#include <vector>

namespace kmhost {

struct intent {
    std::string command; // "install", "remove", "commit" ...
    package_id id;
    std::string file;                     // package file, absolute; "" for none
    std::vector<std::string> definitions; // NAME=VALUE
    unsigned mode = 0;
    long since = 0; // seconds
};

// False: `result` says why it cannot be written.
bool write_intent(const intent& what, outcome& result);
void drop_intent(const package_id& id);
std::vector<intent> read_intents();
std::optional<intent> intent_of(const package_id& id);

// "The install of NAME^VERSION, begun at TIME, was cut ...".
std::string cut_words(const intent& what);

} // namespace kmhost
