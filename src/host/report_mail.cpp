// report_mail: reports by mail, to a server or into a spool directory
// format: docs/formats/report-mail.md
// invariant: a mail that a server has taken is not sent again
#include "report_mail.h"

#include "delivery_note.h"
#include "durable.h"
#include "mail_text.h"
#include "remote_call.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace kmhost {

namespace {

struct mail {
    std::string from;
    std::vector<std::string> to;
    std::string text;
};

// Gives a mail to the library, and notes in front of the last byte that the server may have it.
struct mail_reader {
    const std::string& text;
    const delivery_note& note;
    size_t at = 0;
    int error = 0;

    static size_t read(char* to, size_t size, size_t count, void* self) {
        auto& reader = *static_cast<mail_reader*>(self);
        const size_t left = reader.text.size() - reader.at;
        if (left == 1 && !reader.note.begin()) {
            reader.error = errno;
            return CURL_READFUNC_ABORT;
        }
        const size_t part = std::min(size * count, left > 1 ? left - 1 : left);
        std::memcpy(to, reader.text.data() + reader.at, part);
        reader.at += part;
        return part;
    }
};

std::vector<std::string> recipients(const std::vector<std::string>& addresses) {
    std::vector<std::string> all;
    for (const auto& one : addresses)
        all.push_back("<" + one + ">");
    return all;
}

bool is_server_name(const std::string& name) {
    return std::all_of(name.begin(), name.end(), [](char one) {
        return (one >= 'a' && one <= 'z') || (one >= 'A' && one <= 'Z') ||
               (one >= '0' && one <= '9') || one == '.' || one == '-' || one == '_' || one == ':';
    });
}

// "smtp://HOST:PORT/NAME-OF-THIS-MACHINE"; "" if the settings do not make one.
std::string url_of(const report_settings& settings, const std::string& machine, std::string& why) {
    const std::string tls = settings.mail_tls.empty() ? "starttls" : settings.mail_tls;
    if (tls != "none" && tls != "starttls" && tls != "tls") {
        why = "report_mail_tls is \"" + tls + "\": it can be none, starttls or tls";
        return "";
    }
    if (!is_server_name(settings.mail_server)) {
        why = "report_mail_server is no name of a server: " + settings.mail_server;
        return "";
    }
    const bool is_ipv6 = settings.mail_server.find(':') != std::string::npos;
    const long port = settings.mail_port ? settings.mail_port
                      : tls == "tls"     ? 465
                      : tls == "none"    ? 25
                                         : 587;
    return (tls == "tls" ? "smtps://" : "smtp://") + (is_ipv6 ? "[" : std::string()) +
           settings.mail_server + (is_ipv6 ? "]:" : ":") + std::to_string(port) + "/" +
           mail_host(machine);
}

bool log_in(remote_call& call, const report_settings& settings, std::string& why) {
    std::string password;
    if (!settings.mail_user.empty() && !settings.mail_password_file.empty() &&
        !read_secret(settings.mail_password_file, password)) {
        why = settings.mail_password_file + " cannot be read: " + std::strerror(errno);
        return false;
    }
    call.log_in(settings.mail_user, password);
    return true;
}

std::string failure_of(const remote_call& call, const mail_reader& reader) {
    if (reader.error)
        return std::string("the sending cannot be noted: ") + std::strerror(reader.error);
    if (call.code() >= 400)
        return "the mail server answered: " + call.last_line();
    return "the mail server: " + call.why();
}

delivery send(remote_call& call, const mail& what, const delivery_note& note, std::string& why) {
    mail_reader reader{what.text, note};
    call.set(CURLOPT_MAIL_FROM, ("<" + what.from + ">").c_str());
    call.set_lines(CURLOPT_MAIL_RCPT, recipients(what.to));
    call.set(CURLOPT_UPLOAD, 1L);
    call.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(what.text.size()));
    call.set(CURLOPT_READFUNCTION, mail_reader::read);
    call.set(CURLOPT_READDATA, &reader);
    if (call.perform()) {
        note.take();
        return delivery::done;
    }
    why = failure_of(call, reader);
    note.withdraw();
    return delivery::failed;
}

delivery deliver_to_server(const report_fields& report, const report_settings& settings,
                           const mail& what, std::string& why) {
    const delivery_note note(settings.working_directory, report.key, "mail");
    const auto before = note.read();
    if (before == delivery_note::progress::taken)
        return delivery::done;
    if (before == delivery_note::progress::begun && !settings.mail_again) {
        why = "a process ended while the mail server took the report: nobody knows whether it did";
        return delivery::done;
    }
    const std::string url = url_of(settings, report.endpoint_name, why);
    if (url.empty())
        return delivery::failed;
    remote_call call(url, "smtp,smtps", std::chrono::seconds(settings.timeout));
    if (settings.mail_tls != "none")
        call.set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    call.trust(settings.mail_ca_file);
    if (!log_in(call, settings, why))
        return delivery::failed;
    if (!note.prepare()) {
        why = std::string("the sending cannot be noted: ") + std::strerror(errno);
        return delivery::failed;
    }
    return send(call, what, note, why);
}

// The temporary file goes in the step that makes the mail visible. So where a note tells of that
// step, and the temporary file is gone, the mail was there, also if somebody has fetched it since.
delivery put_into_spool(const report_fields& report, const report_settings& settings,
                        const mail& what, std::string& why) {
    const std::string spool =
        settings.mail_spool.empty() ? settings.working_directory + "/mail" : settings.mail_spool;
    const km::pathname temporary((spool + "/." + report.key + ".new").c_str());
    const km::pathname target((spool + "/" + report.key + ".eml").c_str());
    const delivery_note note(settings.working_directory, report.key, "spool");
    if (note.read() != delivery_note::progress::none && ::access(temporary.mbcs_str(), F_OK) != 0 &&
        errno == ENOENT)
        return delivery::done;
    const auto write = [&what](int out) {
        return km::write_fully(out, what.text.data(), what.text.size());
    };
    if (km::make_directories_durably(km::pathname(spool.c_str())) &&
        km::replace_durably(temporary, 0600, write) && note.prepare() && note.begin() &&
        km::rename_durably(temporary, target, 0))
        return delivery::done;
    why = "the mail cannot be put into " + spool + ": " + std::strerror(errno);
    if (::access(target.mbcs_str(), F_OK) != 0) {
        note.withdraw();
        ::unlink(temporary.mbcs_str());
    }
    return delivery::failed;
}

std::string joined(const std::vector<std::string>& addresses) {
    std::string text;
    for (const auto& one : addresses)
        text += (text.empty() ? "<" : ",\r\n <") + one + ">";
    return text;
}

} // namespace

bool read_mail_addresses(const std::string& list, std::vector<std::string>& addresses,
                         std::string& why) {
    for (size_t at = 0; at <= list.size();) {
        const size_t end = std::min(list.find(',', at), list.size());
        const size_t first = list.find_first_not_of(" \t", at);
        if (first < end) {
            const size_t last = list.find_last_not_of(" \t", end - 1);
            addresses.push_back(list.substr(first, last - first + 1));
            if (!is_mail_address(addresses.back())) {
                why = "report_mail_to: no address of mail: " + addresses.back();
                return false;
            }
        }
        at = end + 1;
    }
    return true;
}

delivery deliver_to_mail(const report_fields& report, const report_settings& settings,
                         std::string& why) {
    mail what;
    if (!read_mail_addresses(settings.mail_to, what.to, why))
        return delivery::failed;
    if (what.to.empty())
        return delivery::not_set_up;
    what.from = settings.mail_from.empty() ? "kmctl@" + mail_host(report.endpoint_name)
                                           : settings.mail_from;
    if (!is_mail_address(what.from)) {
        why = "report_mail_from: no address of mail: " + what.from;
        return delivery::failed;
    }
    what.text = mail_text(report, what.from, joined(what.to));
    return settings.mail_server.empty() ? put_into_spool(report, settings, what, why)
                                        : deliver_to_server(report, settings, what, why);
}

} // namespace kmhost
