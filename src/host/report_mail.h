// report_mail: reports by mail, to a server or into a spool directory
//
// deliver_to_mail of report_channels.h. A server that answered the end of a mail with "yes" gets
// the report no second time; docs/formats/report-mail.md tells what mail cannot know.
#pragma once

#include "report_channels.h"

namespace kmhost {

// Of settings.mail_to; false: `why` names what is no address.
bool read_mail_addresses(const std::string& list, std::vector<std::string>& addresses,
                         std::string& why);

} // namespace kmhost
