// report_channels: the channels on which reports leave this machine, and their settings
// format: docs/formats/settings.md
// invariant: a setting that is none, or makes no sense, has its default
#include "report_channels.h"

#include "location.h"

#include <cstdlib>

namespace kmhost {

namespace {

std::string text_of(const char* name) { return setting((std::string("report_") + name).c_str()); }

bool is_yes(const std::string& text) { return text == "yes" || text == "y" || text == "1"; }

long number_of(const char* name, long least, long most, long otherwise) {
    const std::string text = text_of(name);
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    return text.empty() || *end || value < least || value > most ? otherwise : value;
}

} // namespace

report_settings read_report_settings() {
    report_settings all;
    all.working_directory = setting("working_dir");
    all.file = text_of("file");
    all.file_template = text_of("file_template");
    all.file_json = text_of("file_format") == "json";
    all.file_max_size = number_of("file_max_size", 0, 1L << 40, all.file_max_size);
    all.file_copies = number_of("file_copies", 0, 99, all.file_copies);
    all.db = text_of("db");
    all.mail_server = text_of("mail_server");
    all.mail_port = number_of("mail_port", 1, 65535, 0);
    all.mail_tls = text_of("mail_tls");
    all.mail_user = text_of("mail_user");
    all.mail_password_file = text_of("mail_password_file");
    all.mail_from = text_of("mail_from");
    all.mail_to = text_of("mail_to");
    all.mail_spool = text_of("mail_spool");
    all.mail_ca_file = text_of("mail_ca_file");
    all.mail_again = is_yes(text_of("mail_again"));
    all.event_syslog = text_of("event_syslog") == "no" ? "" : text_of("event_syslog");
    all.event_url = text_of("event_url");
    all.event_ca_file = text_of("event_ca_file");
    all.event_token_file = text_of("event_token_file");
    all.notice = is_yes(text_of("notice"));
    all.timeout = number_of("timeout", 1, 3600, all.timeout);
    return all;
}

long count_channels(const report_settings& settings) {
    const bool events = !settings.event_syslog.empty() || !settings.event_url.empty();
    return !settings.file.empty() + !settings.db.empty() + !settings.mail_to.empty() + events +
           settings.notice;
}

} // namespace kmhost
