// messages: the engine's messages for people
#pragma once

#include "base/msg_supp.h"
#include "outcome.h"

namespace kmhost {

// Adds each message of the list, once, with its severity; message 82 and the like keep their id.
void take_messages(const km::spmessage& from, outcome& result);

// A bound text of the engine without the number of its message.
std::string without_id(const std::string& text);

} // namespace kmhost
