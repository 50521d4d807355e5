// mail_text: a report as a mail
// format: docs/formats/report-mail.md
// invariant: no field of a report begins a line of the head, or ends the head
#include "mail_text.h"

#include "crypto_library.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace kmhost {

namespace {

constexpr size_t longest_subject = 400; // bytes
constexpr size_t word_bytes = 45;       // 60 characters of base64: an encoded word has room for 75
constexpr size_t line_of_text = 73;     // and "=" or one more escape, below 76

bool is_plain(char one) { return one >= ' ' && one <= '~'; }

bool continues_character(char one) { return (static_cast<unsigned char>(one) & 0xC0) == 0x80; }

// Not more than `count` bytes, and not a part of a character.
std::string cut(const std::string& text, size_t from, size_t count) {
    size_t end = std::min(text.size(), from + count);
    const size_t wanted = end;
    while (end > from && end < text.size() && continues_character(text[end]))
        --end;
    return text.substr(from, (end > from ? end : wanted) - from);
}

std::string base64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length = km::crypto_library::get().encode_block(
        reinterpret_cast<unsigned char*>(text.data()),
        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    text.resize(static_cast<size_t>(length));
    return text;
}

// "Sat, 21 Nov 2026 13:52:43 +0000"; the time of the operation, so that a repeat is the same mail.
std::string date_of(const std::string& exec_time) {
    std::tm when = {};
    if (!::strptime(exec_time.c_str(), "%Y-%m-%dT%H:%M:%SZ", &when)) {
        const std::time_t now = std::time(nullptr);
        ::gmtime_r(&now, &when);
    } else {
        const std::time_t time = ::timegm(&when);
        ::gmtime_r(&time, &when);
    }
    static const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d +0000", days[when.tm_wday],
                  when.tm_mday, months[when.tm_mon], when.tm_year + 1900, when.tm_hour, when.tm_min,
                  when.tm_sec);
    return text;
}

std::string subject_of(const report_fields& report) {
    std::string text = (report.operation.empty() ? "report" : report.operation) + " of " +
                       report.name + " " + report.version;
    if (!report.endpoint_name.empty())
        text += " on " + report.endpoint_name;
    return report.exit_codes_msg.empty() ? text : text + ": " + report.exit_codes_msg;
}

std::string body_of(const report_fields& report) {
    const struct {
        const char* label;
        const std::string& value;
    } lines[] = {{"Package", report.name},           {"Version", report.version},
                 {"Operation", report.operation},    {"Mode", report.mode},
                 {"Outcome", report.exit_codes_msg}, {"State", report.state},
                 {"Time", report.exec_time},         {"Machine", report.endpoint_name},
                 {"Machine id", report.endpoint_id}, {"Asked for by", report.origin_user},
                 {"User", report.user_name},         {"Distribution", report.distribution_id},
                 {"Data", report.pathname},          {"Report", report.key}};
    std::string text;
    for (const auto& [label, value] : lines)
        if (!value.empty())
            text += std::string(label) + ": " + value + "\n";
    return report.message.empty() ? text : text + "\n" + report.message + "\n";
}

} // namespace

std::string mail_host(const std::string& name) {
    const bool fits =
        !name.empty() && name.size() <= 255 && std::all_of(name.begin(), name.end(), [](char one) {
            return (one >= 'a' && one <= 'z') || (one >= 'A' && one <= 'Z') ||
                   (one >= '0' && one <= '9') || one == '.' || one == '-';
        });
    return fits ? name : "localhost";
}

bool is_mail_address(const std::string& text) {
    return !text.empty() && text.size() <= 320 &&
           std::all_of(text.begin(), text.end(), [](char one) {
               return is_plain(one) &&
                      std::string_view(" \"<>,;:\\()[]").find(one) == std::string_view::npos;
           });
}

std::string encoded_head(const std::string& text) {
    std::string clean = cut(text, 0, longest_subject);
    std::replace_if(
        clean.begin(), clean.end(),
        [](char one) { return static_cast<unsigned char>(one) < ' ' || one == '\x7F'; }, ' ');
    if (clean.size() <= 70 && std::all_of(clean.begin(), clean.end(), is_plain) &&
        clean.find("=?") == std::string::npos)
        return clean;
    std::string words;
    for (size_t at = 0; at < clean.size();) {
        const std::string part = cut(clean, at, word_bytes);
        words += (at ? "\r\n =?UTF-8?B?" : "=?UTF-8?B?") + base64(part) + "?=";
        at += part.size();
    }
    return words;
}

// A line feed, alone or behind a carriage return, ends a line of the text; any other control
// character is escaped.
std::string quoted_printable(const std::string& text) {
    static const char* digits = "0123456789ABCDEF";
    std::string all;
    size_t column = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        const char one = text[at];
        const bool ends_line = one == '\n' || (one == '\r' && text.compare(at + 1, 1, "\n") == 0);
        if (ends_line) {
            at += one == '\r';
            all += "\r\n";
            column = 0;
            continue;
        }
        if (column >= line_of_text) {
            all += "=\r\n";
            column = 0;
        }
        const char next = at + 1 < text.size() ? text[at + 1] : '\n';
        const bool last_blank = one == ' ' && (next == '\n' || next == '\r');
        if (is_plain(one) && one != '=' && !last_blank) {
            all += one;
            ++column;
            continue;
        }
        const auto byte = static_cast<unsigned char>(one);
        all += {'=', digits[byte >> 4], digits[byte & 15]};
        column += 3;
    }
    return all;
}

std::string mail_text(const report_fields& report, const std::string& from, const std::string& to) {
    const size_t at = from.rfind('@');
    const std::string host = mail_host(at == std::string::npos ? "" : from.substr(at + 1));
    return "Date: " + date_of(report.exec_time) + "\r\nFrom: <" + from + ">\r\nTo: " + to +
           "\r\nSubject: " + encoded_head(subject_of(report)) + "\r\nMessage-ID: <" + report.key +
           "@" + host +
           ">\r\nAuto-Submitted: auto-generated\r\nMIME-Version: 1.0\r\n"
           "Content-Type: text/plain; charset=UTF-8\r\n"
           "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
           quoted_printable(body_of(report));
}

} // namespace kmhost
