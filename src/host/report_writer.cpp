// report_writer: the message with the report of an operation
// format: docs/formats/report.md
// invariant: an operation has one report, however often its end is cut
#include "report_writer.h"

#include "durable.h"
#include "location.h"
#include "message.h"
#include "proxy_kinds.h"
#include "report.h"
#include "report_channels.h"
#include "report_words.h"
#include "status_words.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kmhost {

namespace {

// Of this process, which is the worker of one command.
struct {
    std::string distribution;
    std::vector<intent> ended; // operations whose end is told
    bool any = false;
} course;

std::string name_of(uid_t user) {
    const passwd* known = ::getpwuid(user);
    return known ? known->pw_name : std::to_string(user);
}

std::string who_asked() {
    const char* behind = std::getenv("SUDO_USER");
    return behind && *behind ? behind : name_of(::getuid());
}

std::string host_name() {
    char name[256] = "";
    ::gethostname(name, sizeof name - 1);
    return name;
}

std::string machine_id() {
    std::ifstream in("/etc/machine-id");
    std::string id;
    std::getline(in, id);
    return id;
}

std::string now_text() {
    char text[32] = "";
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", ::gmtime_r(&now, &utc));
    return text;
}

// An address without a name and a password in it.
std::string without_login(const std::string& file) {
    const size_t host = file.find("://");
    const size_t at = host == std::string::npos ? host : file.find('@', host);
    if (at == std::string::npos || file.find('/', host + 3) < at)
        return file;
    return file.substr(0, host + 3) + file.substr(at + 1);
}

// How it ended, on one line.
std::string text_of(const outcome& result) {
    constexpr size_t most_bytes = 16000;
    std::string text = result.text;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (const auto& one : result.messages)
        if (one.level != severity::info && text.size() < most_bytes)
            text += (text.empty() ? "" : "; ") + std::string(severity_word(one.level)) + ": " +
                    one.text;
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ')
            c = ' ';
    if (text.size() > most_bytes)
        text = text.substr(0, most_bytes) + " ...";
    return text;
}

bool is_an_end(const outcome& result) {
    return result.word == "done" || result.word == "failed" || result.word == "refused";
}

km::report* make_report(const intent& what, const outcome& result) {
    const auto text = [](const std::string& of) { return km::ustring(of.c_str()); };
    auto* one = new km::report(new km::proxy_standard_log_protocol);
    one->set_opt_params(new km::ustring(what.run.c_str()));
    one->set_distribution_id(text(course.distribution.empty() ? what.run : course.distribution));
    one->set_name(text(what.id.name));
    one->set_version(text(what.id.version));
    one->set_spname(text(without_login(what.file)));
    one->set_endpoint_name(text(host_name()));
    one->set_endpoint_id(text(machine_id()));
    one->set_origin_user(text(who_asked()));
    one->set_user_name(text(name_of(::geteuid())));
    one->set_exec_time(text(now_text()));
    one->set_operation_mode(static_cast<long>(what.mode));
    one->set_operation_type(operation_number(what.command));
    one->set_result(text(result.word));
    one->set_message(text(text_of(result)));
    one->set_exit_codes_msg(text(result.word + ", exit code " + std::to_string(result.exit)));
    if (result.package && result.package->name == what.id.name)
        one->set_state(km::dbstatus_to_long(result.package->state.c_str()));
    one->set_exception(result.failed());
    one->set_primary(1);
    return one;
}

// `before` is called with the message's name before it has any content; its failure ends it.
bool write_message(const intent& what, const outcome& result,
                   const std::function<bool(const std::string& name)>& before) {
    const km::pathname directory = km::ZNPMessage::get_work_dir();
    km::make_directories_durably(directory);
    km::ZNPMessage message;
    if (!message.init(make_report(what, result), km::priority_a))
        return false;
    if (before(message.get_path().get_file().mbcs_str()) && message.serialize(0)) {
        course.any = true;
        return true;
    }
    message.dispose();
    return false;
}

void tell_lost(outcome& result) {
    result.warn("report", "The report of this operation could not be written below " +
                              setting("working_dir") + "/message; no channel will get it.");
}

bool report_run(intent what, const outcome& result) {
    if (what.run.empty())
        what.run = new_run_id();
    return write_message(what, result, [&what](const std::string& name) {
        outcome ignored;
        what.message = name;
        return write_intent(what, ignored);
    });
}

// Also where the run that began it was another one, and this one found it ended.
bool was_told(const intent& what) {
    return std::any_of(course.ended.begin(), course.ended.end(), [&what](const intent& one) {
        return one.command == what.command && one.id.name == what.id.name;
    });
}

} // namespace

void set_distribution(const std::string& id) { course.distribution = id; }

bool has_written_report() { return course.any; }

bool is_reported(const intent& what) {
    struct stat about {};
    const std::string path =
        std::string(km::ZNPMessage::get_work_dir().mbcs_str()) + "/" + what.message;
    return !what.message.empty() && ::stat(path.c_str(), &about) == 0 && about.st_size > 0;
}

void end_run(const package_id& id, outcome& result) {
    const auto what = intent_of(id);
    if (what && result.word != "pending" && has_channel(read_report_settings())) {
        course.ended.push_back(*what);
        // A cut run may have left nothing to do: its end is told all the same.
        outcome told = result;
        if (told.word == "nothing")
            told.word = "done";
        if (!is_reported(*what) && !report_run(*what, told))
            tell_lost(result);
    }
    drop_intent(id);
}

void end_cut_run(const intent& cut, const std::string& text) {
    outcome told;
    told.text = text;
    course.ended.push_back(cut);
    if (!is_reported(cut) && has_channel(read_report_settings()))
        report_run(cut, told);
    drop_intent(cut.id);
}

void report_command(const std::string& command, const std::string& target, unsigned mode,
                    outcome& result) {
    if (!operation_number(command) || !is_an_end(result) || !has_channel(read_report_settings()))
        return;
    intent what;
    what.command = command;
    what.id = result.package ? package_id{result.package->name, result.package->version}
                             : parse_id(target);
    if (was_told(what))
        return;
    what.mode = mode;
    what.run = new_run_id();
    if (!write_message(what, result, [](const std::string&) { return true; }))
        tell_lost(result);
}

} // namespace kmhost
