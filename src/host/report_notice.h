// report_notice: reports as messages for the people on this machine
#pragma once

#include "report_channels.h"

#include <filesystem>

namespace kmhost {

struct notice {
    std::string id; // key of its report
    std::string text;
    std::filesystem::file_time_type written;
};

// By time. What is no notice (another name, no plain file) is passed over.
std::vector<notice> read_notices(const std::string& working_directory);

// Takes a notice away from the people's sight. Its name is kept until forget_cleared_notices: the
// report may be delivered once more. False: `why`.
bool clear_notice(const std::string& working_directory, const std::string& id, std::string& why);

// For a delivery that has left nothing to deliver.
void forget_cleared_notices(const std::string& working_directory);

} // namespace kmhost
