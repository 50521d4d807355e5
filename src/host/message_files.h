// message_files: the messages that wait below the working directory, to look at and to deliver
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace km {
class report;
class ZNPMessage;
} // namespace km

namespace kmhost {

// File names of the messages, in the order in which they are delivered. What is no plain file is
// passed over.
std::vector<std::string> message_names();

// The message of a file, with the progress of its delivery as it stands on the disk; changes
// nothing. Null if the file is gone or holds no message of its own name.
std::unique_ptr<km::ZNPMessage> read_message(const std::string& name);

// Why it is null: nothing is there any more, or yet; this user may not read it; it is no message.
enum class unread_message { gone, forbidden, strange };
unread_message why_unread(const std::string& name);

// Whether a message just loaded is the one of this file; a stream may name another one.
bool is_named(const km::ZNPMessage& message, const std::string& name);

// The report of a message, lent; null for a list of them.
km::report* report_in(const km::ZNPMessage& message);

// Moves what stands under a message's name and is no plain file, has a backslash, or is large and
// begins as no message, to "removed": nothing waits for a pipe, nothing follows a link, and nothing
// copies it. The number of names.
long put_strangers_aside();
bool put_aside(const std::string& name);

// What a kill left half written: messages whose name is gone, notices, the journal of the file. For
// whoever delivers.
void remove_half_written();

// Data that decoding bulk reports has left.
void remove_bulk_data();

// Whether messages can be decoded at all: without the list of libraries every one looks damaged.
bool can_decode_messages();

} // namespace kmhost
