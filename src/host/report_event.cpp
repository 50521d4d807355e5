// report_event: reports to the system log and, as a POST, to a server
// format: docs/formats/report-event.md
// invariant: a log that hangs, or is not there, is a failed delivery and holds nobody up
#include "report_event.h"

#include "delivery_note.h"
#include "remote_call.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace kmhost {

namespace {

constexpr size_t longest_line = 900;
constexpr const char* log_socket = "/dev/log";

// A descriptor on a log's socket of datagrams; -1 with errno.
int connect_log(const std::string& path) {
    sockaddr_un where = {};
    where.sun_family = AF_UNIX;
    if (path.size() >= sizeof where.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(where.sun_path, path.c_str(), path.size());
    const int log = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (log >= 0 && ::connect(log, reinterpret_cast<sockaddr*>(&where), sizeof where) != 0) {
        const int error = errno;
        ::close(log);
        errno = error;
        return -1;
    }
    return log;
}

// As the C library writes it, for a log that listens somewhere else.
std::string datagram_of(int priority, const std::string& line) {
    char time[32] = "";
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    ::localtime_r(&now, &parts);
    std::strftime(time, sizeof time, "%b %e %H:%M:%S", &parts);
    return "<" + std::to_string(LOG_DAEMON | priority) + ">" + time + " kmctl[" +
           std::to_string(::getpid()) + "]: " + line;
}

// syslog() itself tells nobody whether a log listens, so that is looked at before. 0, or errno.
int tell_log(const std::string& path, int priority, const std::string& line) {
    const int log = connect_log(path.empty() ? log_socket : path);
    if (log < 0)
        return errno;
    if (path.empty()) {
        ::openlog("kmctl", LOG_PID, LOG_DAEMON);
        ::syslog(priority, "%s", line.c_str());
        return 0;
    }
    const std::string text = datagram_of(priority, line);
    return ::send(log, text.data(), text.size(), MSG_NOSIGNAL) < 0 ? errno : 0;
}

bool is_closed_within(int descriptor, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd one = {descriptor, POLLIN, 0};
        const int ready = ::poll(&one, 1, static_cast<int>(std::max(left.count(), 0L)));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

int end_of(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return errno;
    return WIFEXITED(status) ? WEXITSTATUS(status) : ETIMEDOUT;
}

// A log that does not read stops its writers for ever: so the writer is a process of its own, that
// can be ended. Its end of the pipe closes when it goes. 0, or errno.
int tell_log_within(std::chrono::milliseconds limit, const std::string& path, int priority,
                    const std::string& line) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    const pid_t child = ::fork();
    const int failed = child < 0 ? errno : 0;
    if (child == 0)
        ::_exit(tell_log(path, priority, line));
    ::close(ends[1]);
    if (child > 0 && !is_closed_within(ends[0], limit))
        ::kill(child, SIGKILL);
    ::close(ends[0]);
    return failed ? failed : end_of(child);
}

delivery deliver_to_log(const report_fields& report, const report_settings& settings,
                        std::string& why) {
    const delivery_note note(settings.working_directory, report.key, "syslog");
    const auto before = note.read();
    if (before == delivery_note::progress::begun)
        why = "a process ended while it told the system log: nobody knows whether the log has it";
    if (before != delivery_note::progress::none)
        return delivery::done;
    if (!note.prepare() || !note.begin()) {
        why = std::string("the telling cannot be noted: ") + std::strerror(errno);
        return delivery::failed;
    }
    const std::string path = settings.event_syslog == "yes" ? "" : settings.event_syslog;
    const int error = tell_log_within(std::chrono::seconds(settings.timeout), path,
                                      event_priority(report), event_line(report));
    if (!error) {
        note.take();
        return delivery::done;
    }
    note.withdraw();
    why = "the system log does not take the report: " + std::string(std::strerror(error));
    return delivery::failed;
}

bool add_token(const std::string& file, std::vector<std::string>& to, std::string& why) {
    if (file.empty())
        return true;
    std::string token;
    if (!read_secret(file, token)) {
        why = file + " cannot be read: " + std::strerror(errno);
        return false;
    }
    to.push_back("Authorization: Bearer " + token);
    return true;
}

// Passwords and questions of an address are nobody's business in a message.
std::string server_of(const std::string& url) {
    const size_t scheme = url.find("://");
    const size_t host = scheme == std::string::npos ? 0 : scheme + 3;
    const size_t end = std::min(url.find_first_of("/?#", host), url.size());
    const size_t user = url.rfind('@', end);
    const size_t begin = user == std::string::npos || user < host ? host : user + 1;
    return url.substr(0, host) +
           url.substr(begin, std::min(url.find_first_of("?#"), url.size()) - begin);
}

bool was_taken(long code) { return code >= 200 && code < 300; }

delivery post(const report_fields& report, const report_settings& settings, std::string& why) {
    std::vector<std::string> heads = {"Content-Type: application/json",
                                      "Expect:", "Idempotency-Key: " + report.key};
    if (!add_token(settings.event_token_file, heads, why))
        return delivery::failed;
    const std::string body = report_json(report) + "\n";
    remote_call call(settings.event_url, "http,https", std::chrono::seconds(settings.timeout));
    call.trust(settings.event_ca_file);
    call.set_lines(CURLOPT_HTTPHEADER, heads);
    call.set(CURLOPT_USERAGENT, "kmctl");
    call.set(CURLOPT_POST, 1L);
    call.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    call.set(CURLOPT_POSTFIELDS, body.data());
    const bool ended = call.perform();
    if (was_taken(call.code())) // what comes behind these words changes nothing
        return delivery::done;
    why = server_of(settings.event_url) +
          (ended ? " answered: " + call.last_line() : ": " + call.why());
    return delivery::failed;
}

} // namespace

std::string event_line(const report_fields& report) {
    std::string line = "report " + report.key + ": " +
                       (report.operation.empty() ? "operation" : report.operation) + " of " +
                       report.name + " " + report.version;
    if (!report.exit_codes_msg.empty())
        line += ": " + report.exit_codes_msg;
    if (!report.message.empty())
        line += ": " + report.message;
    for (char& one : line)
        if (static_cast<unsigned char>(one) < ' ' || one == '\x7F')
            one = ' ';
    if (line.size() > longest_line) {
        size_t end = longest_line;
        while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80)
            --end;
        line.resize(end);
    }
    return line;
}

int event_priority(const report_fields& report) {
    const auto begins = [&report](const char* word) {
        return report.exit_codes_msg.compare(0, std::strlen(word), word) == 0;
    };
    if (begins("done") || begins("nothing"))
        return LOG_INFO;
    return begins("failed") ? LOG_ERR : LOG_WARNING;
}

delivery deliver_to_event(const report_fields& report, const report_settings& settings,
                          std::string& why) {
    const bool has_log = !settings.event_syslog.empty();
    if (!has_log && settings.event_url.empty())
        return delivery::not_set_up;
    std::string of_log;
    const delivery told = has_log ? deliver_to_log(report, settings, of_log) : delivery::done;
    const delivery posted =
        settings.event_url.empty() ? delivery::done : post(report, settings, why);
    if (!of_log.empty())
        why += (why.empty() ? "" : "; ") + of_log;
    return told == delivery::done && posted == delivery::done ? delivery::done : delivery::failed;
}

} // namespace kmhost
