// report_channels: the channels on which reports leave this machine, and their settings
//
// Each channel holds a report once, however often it is delivered: a process may die behind the
// delivery and in front of the note of it, and then delivers again. What tells a repeat is the key.
#pragma once

#include <string>
#include <vector>

namespace kmhost {

// What a report tells, as plain values: UTF-8, unlimited in length, line feeds and all.
struct report_fields {
    // Letters, digits and '-', at most 64 of them: the same for every delivery of one report, and
    // of no other one. Key of the database, id of a JSON line, name of a notice, idempotency key of
    // a POST, in front of the '@' of a Message-ID.
    std::string key;
    std::string distribution_id;
    std::string name; // of the package
    std::string version;
    std::string spname;
    std::string operation;      // "install", "remove", "commit" ..., "" if it is not known
    std::string mode;           // words of the mode, separated by blanks
    long operation_type = 0;    // km::operation
    long operation_mode = 0;    // option bits
    std::string state;          // five letters
    std::string message;        // how the operation ended, for people
    std::string exit_codes_msg; // "done", "failed" ... and exit code of the command
    std::string endpoint_name;  // the machine
    std::string endpoint_id;    // its machine id
    std::string endpoint_guid;
    std::string spo_oid;
    std::string base_name;
    std::string base_version;
    std::string base_oid;
    std::string origin_user; // who asked for the operation
    std::string user_name;
    std::string exec_time; // "2026-11-21T13:52:43Z"
    std::string pathname;  // data of the report, "" for none
    bool exception = false;
    bool primary = false;
};

// Settings, with "" or 0 for what is not set. docs/formats/settings.md tells their values.
struct report_settings {
    std::string working_directory;
    std::string file; // path; "": no such channel
    std::string file_template;
    bool file_json = false;
    long file_max_size = 1000000; // bytes; 0: never rotated
    long file_copies = 3;         // that are kept beside the file
    std::string db;               // path; "": no such channel
    std::string mail_server;      // "" with a mail_to: mails go to the spool
    long mail_port = 0;           // 0: as the encryption has it
    std::string mail_tls;         // "none", "starttls" (default) or "tls"
    std::string mail_user;
    std::string mail_password_file;
    std::string mail_from;
    std::string mail_to;    // addresses separated by ','; "": no such channel
    std::string mail_spool; // directory; "": WORKING_DIRECTORY/mail
    std::string mail_ca_file;
    bool mail_again = false;  // when nobody knows whether a server took a mail: send it again
    std::string event_syslog; // "yes", or a socket's path; "" or "no": none
    std::string event_url;    // http or https; "": none
    std::string event_ca_file;
    std::string event_token_file; // first line: the token of "Authorization: Bearer"
    bool notice = false;
    long timeout = 10; // seconds that one delivery to one channel may take
};

report_settings read_report_settings();

// Channels that a report would be delivered to.
long count_channels(const report_settings& settings);
inline bool has_channel(const report_settings& settings) { return count_channels(settings) > 0; }

enum class delivery {
    done,       // the channel holds the report, for sure
    not_set_up, // counts as done
    failed      // `why` tells the reason in one line; to be tried again
};

// One report to one channel. None of them throws, waits much longer than settings.timeout, or
// leaves a process or a handle behind. One process at a time delivers.
delivery deliver_to_file(const report_fields& report, const report_settings& settings,
                         std::string& why);
delivery deliver_to_db(const report_fields& report, const report_settings& settings,
                       std::string& why);
delivery deliver_to_mail(const report_fields& report, const report_settings& settings,
                         std::string& why);
delivery deliver_to_event(const report_fields& report, const report_settings& settings,
                          std::string& why);
delivery deliver_to_notice(const report_fields& report, const report_settings& settings,
                           std::string& why);

// The report as one JSON object on one line, without a line feed; bytes that are no UTF-8 become
// U+FFFD. docs/formats/report-json.md tells the members.
std::string report_json(const report_fields& report);

// The report after a template (docs/formats/report-template.md), each line with its line feed.
// `listeners` is what "%listeners%" writes.
std::string report_text(const report_fields& report, const std::string& form,
                        const std::string& listeners = "");

} // namespace kmhost
