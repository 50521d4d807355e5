// report_notice: reports as messages for the people on this machine
// format: docs/formats/report-notice.md
// invariant: a notice that was cleared does not come back with a repeat of its report
#include "report_notice.h"

#include "durable.h"
#include "file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <iterator>
#include <unistd.h>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

std::string directory_of(const std::string& working_directory) {
    return working_directory + "/notice";
}

// What is cleared waits here until no delivery can repeat it.
std::string cleared_in(const std::string& working_directory) {
    return directory_of(working_directory) + "/cleared";
}

bool is_there(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

bool is_key(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '-';
    });
}

std::string text_of(const report_fields& report) {
    const std::string package =
        report.version.empty() ? report.name : report.name + "^" + report.version;
    return report.exec_time + " " + report.operation + " " + package + ": " +
           report.exit_codes_msg + "\n" + report.message +
           (report.message.empty() || report.message.back() == '\n' ? "" : "\n");
}

} // namespace

delivery deliver_to_notice(const report_fields& report, const report_settings& settings,
                           std::string& why) {
    if (!settings.notice)
        return delivery::not_set_up;
    const std::string path = directory_of(settings.working_directory) + "/" + report.key;
    if (is_there(path) || is_there(cleared_in(settings.working_directory) + "/" + report.key))
        return delivery::done;
    km::make_directories_durably(km::pathname(directory_of(settings.working_directory).c_str()));
    const std::string text = text_of(report);
    const auto write = [&text](int out) { return km::write_fully(out, text.data(), text.size()); };
    if (km::replace_durably(km::pathname(path.c_str()), 0644, write))
        return delivery::done;
    why = path + " cannot be written: " + std::strerror(errno);
    return delivery::failed;
}

std::vector<notice> read_notices(const std::string& working_directory) {
    constexpr size_t most_bytes = 65536;
    std::vector<notice> all;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(directory_of(working_directory), error)) {
        const std::string id = one.path().filename().string();
        if (!is_key(id) || !fs::is_regular_file(one.symlink_status(error)))
            continue;
        std::ifstream in(one.path(), std::ios::binary);
        std::string text(most_bytes, '\0');
        in.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<size_t>(in.gcount()));
        all.push_back({id, text, one.last_write_time(error)});
    }
    // The text begins with the second; what was written first in it happened first.
    constexpr size_t second = sizeof "2000-01-01T00:00:00Z" - 1;
    const auto order = [](const notice& one) {
        return std::make_tuple(one.text.substr(0, second), one.written, one.id);
    };
    std::sort(all.begin(), all.end(),
              [&order](const notice& a, const notice& b) { return order(a) < order(b); });
    return all;
}

bool clear_notice(const std::string& working_directory, const std::string& id, std::string& why) {
    const std::string target = cleared_in(working_directory) + "/" + id;
    km::make_directories_durably(km::pathname(cleared_in(working_directory).c_str()));
    const std::string path = directory_of(working_directory) + "/" + id;
    if (km::rename_durably(km::pathname(path.c_str()), km::pathname(target.c_str()), 0))
        return true;
    why = path + " cannot be cleared: " + std::strerror(errno);
    return false;
}

void forget_cleared_notices(const std::string& working_directory) {
    km::file(km::pathname(cleared_in(working_directory).c_str())).remove(1);
}

} // namespace kmhost
