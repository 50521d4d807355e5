// mail_text: a report as a mail
#pragma once

#include "report_channels.h"

#include <string>

namespace kmhost {

// A name of a machine as mail wants it: letters, digits, '.' and '-'; "localhost" for any other
// text.
std::string mail_host(const std::string& name);

// An address that can stand in an envelope and a head: printable ASCII without blanks, quotes,
// angle brackets, commas.
bool is_mail_address(const std::string& text);

// The whole message, lines ended by CR LF, of ASCII alone; heads are at most 998 bytes a line.
// Every time the same for one report. `to` is "ADDRESS, ADDRESS".
std::string mail_text(const report_fields& report, const std::string& from, const std::string& to);

// Parts of it, for tests: the value of an unstructured head, and a text in quoted-printable.
std::string encoded_head(const std::string& text);
std::string quoted_printable(const std::string& text);

} // namespace kmhost
