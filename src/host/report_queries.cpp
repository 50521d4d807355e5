// report_queries: what waits to be delivered, and the notices, for people
// no format
// invariant: what only asks takes no lock and changes nothing
#include "report_queries.h"

#include "StatusHandler.h"
#include "channel.h"
#include "intent.h"
#include "location.h"
#include "lockfile.h"
#include "message.h"
#include "message_files.h"
#include "report.h"
#include "report_filter.h"
#include "report_notice.h"
#include "report_protocol.h"
#include "report_words.h"
#include "status_words.h"
#include "ustring_writer.h"

#include "log_protocol.h"

#include <algorithm>
#include <memory>

namespace kmhost {

using nlohmann::json;

namespace {

km::filter filter_of(const report_selection& wanted) {
    km::filter by(!wanted.only_undelivered);
    for (const auto& one : wanted.distributions)
        by.add_distribution_id(one.c_str());
    for (const auto& one : wanted.targets)
        by.add_target_name(one.c_str());
    return by;
}

std::string text(const km::ustring& of) { return of.mbcs_str(); }

// A channel with its bit is done, also where it is not set up.
json channels(long status, bool done) {
    json names = json::array();
    for (size_t i = 0; i < channel_names.size(); ++i)
        if (((status >> i) & 1) == (done ? 1 : 0))
            names.push_back(channel_names[i]);
    return names;
}

json json_of(const km::report& one, const std::string& name) {
    char letters[6];
    km::dbstatus_to_str(one.state, letters);
    return {{"id", key_of(*one.get_protocol(), name)},
            {"file", name},
            {"time", text(one.exec_time)},
            {"operation", operation_word(one.operation_type)},
            {"mode", mode_words(one.operation_mode)},
            {"name", text(one.name)},
            {"version", text(one.version)},
            {"state", letters},
            {"result", text(one.exit_codes_msg)},
            {"message", text(one.message)},
            {"distribution_id", text(one.distribution_id)},
            {"endpoint_name", text(one.endpoint_name)},
            {"endpoint_id", text(one.endpoint_id)},
            {"origin_user", text(one.origin_user)},
            {"user_name", text(one.user_name)},
            {"pending", channels(one.status, false)},
            {"done", channels(one.status, true)}};
}

std::string words_of(const json& list) {
    std::string words;
    for (const auto& one : list)
        words += (words.empty() ? "" : ", ") + one.get<std::string>();
    return words;
}

std::string line_of(const km::report& one, const std::string& name) {
    const std::string pending = words_of(channels(one.status, false));
    return key_of(*one.get_protocol(), name) + "  " + text(one.exec_time) + "  " +
           operation_word(one.operation_type) + " " +
           package_id{text(one.name), text(one.version)}.text() + ": " + text(one.exit_codes_msg) +
           (pending.empty() ? "  [delivered]" : "  [" + pending + "]") + "\n";
}

// Reports have the protocols of this host while one of these lives; nothing is delivered.
class protocols_to_tell {
  public:
    protocols_to_tell() { km::ZNPNotificationPolicy::set_factory(&protocols_); }
    ~protocols_to_tell() { km::ZNPNotificationPolicy::set_factory(nullptr); }
    protocols_to_tell(const protocols_to_tell&) = delete;
    protocols_to_tell& operator=(const protocols_to_tell&) = delete;
    report_protocols* get() { return &protocols_; }

  private:
    report_protocols protocols_{nullptr};
};

// The line of a message after a template; "" for one that the filter leaves out.
std::string formatted(km::ZNPMessage& message, km::filter& by, report_formatter& line,
                      bool removes) {
    constexpr int first_room = 256;
    km::array_output_channel bytes(first_room);
    km::ustring_writer writer(&bytes);
    if (removes)
        message.remove(by, writer, line);
    else
        message.to_text(by, writer, line);
    return {reinterpret_cast<const char*>(bytes.get_data()),
            static_cast<size_t>(bytes.get_count())};
}

bool has_id(const km::ZNPMessage& message, const std::string& name, const std::string& id) {
    const auto* one = report_in(message);
    return id.empty() || id == name ||
           (one && one->get_protocol() && id == key_of(*one->get_protocol(), name));
}

bool is_readable(outcome& result) {
    if (can_decode_messages())
        return true;
    result.fail(exit_failed, "libraries",
                "No message can be read: the list of libraries in " + data_directory() +
                    " is missing or wrong.");
    return false;
}

// Files that are no messages, or are not for this user.
class unreadable_files {
  public:
    void add(const std::string& name) {
        const auto why = why_unread(name);
        strange_ += why == unread_message::strange;
        forbidden_ += why == unread_message::forbidden;
    }
    void tell(outcome& result) const {
        if (forbidden_)
            result.fail(exit_failed, "rights",
                        std::to_string(forbidden_) + (forbidden_ == 1 ? " report" : " reports") +
                            " cannot be read: Permission denied. Run as the owner of " +
                            setting("working_dir") + ".");
        if (strange_)
            result.warn("unreadable", std::to_string(strange_) + " of the files in " +
                                          setting("working_dir") +
                                          "/message are no messages; 'kmctl report deliver' puts "
                                          "them aside.");
    }

  private:
    long strange_ = 0, forbidden_ = 0;
};

} // namespace

namespace {

// What tells the lines of reports: a template of the caller, the own form where there is none, and
// for lists of reports, which tell their lines themselves, the form of the library.
class listing {
  public:
    explicit listing(const report_selection& wanted)
        : wanted_(wanted), by_(filter_of(wanted)),
          asked_(wanted.form.empty() ? "-" : wanted.form.c_str()) {}
    void add(km::ZNPMessage& message, const std::string& name, outcome& result) {
        const auto* one = report_in(message);
        if (one && !one->get_protocol())
            one = nullptr;
        const bool is_formed = !wanted_.form.empty() || !one;
        const std::string line =
            formatted(message, by_, wanted_.form.empty() && !one ? own_ : asked_, false);
        if (line.empty())
            return;
        result.text += is_formed ? line : line_of(*one, name);
        if (!wanted_.with_data)
            return;
        json object = one ? json_of(*one, name) : json{{"file", name}};
        if (is_formed)
            object["line"] = line.substr(0, line.size() - 1);
        result.data["reports"].push_back(std::move(object));
    }

  private:
    const report_selection& wanted_;
    km::filter by_;
    report_formatter asked_;
    report_formatter own_{nullptr};
};

} // namespace

void list_reports(const report_selection& wanted, outcome& result) {
    if (!is_readable(result))
        return;
    protocols_to_tell protocols;
    listing all(wanted);
    result.data["reports"] = json::array();
    unreadable_files unreadable;
    for (const auto& name : message_names()) {
        if (const auto message = read_message(name))
            all.add(*message, name, result);
        else
            unreadable.add(name);
    }
    unreadable.tell(result);
}

void show_report(const std::string& id, outcome& result) {
    if (!is_readable(result))
        return;
    unreadable_files unreadable;
    for (const auto& name : message_names()) {
        const auto message = read_message(name);
        const auto* one = message ? report_in(*message) : nullptr;
        if (!message)
            unreadable.add(name);
        if (!one || !one->get_protocol() || !has_id(*message, name, id))
            continue;
        const json object = json_of(*one, name);
        for (const auto& [key, value] : object.items())
            result.text +=
                key + ": " + (value.is_array() ? words_of(value) : value.get<std::string>()) + "\n";
        result.data["report"] = object;
        return;
    }
    result.fail(exit_not_found, "report",
                "There is no report " + id + " that waits ('kmctl report list' tells them).");
    unreadable.tell(result);
}

namespace {

// Null: it is not selected, gone or no message.
std::unique_ptr<km::ZNPMessage> take_selected(const std::string& name, km::filter& by,
                                              const std::string& id) {
    auto message = read_message(name);
    if (!message || !has_id(*message, name, id))
        return nullptr;
    report_formatter form("-");
    return formatted(*message, by, form, true).empty() ? nullptr : std::move(message);
}

void remove_selected(const report_selection& wanted, outcome& result) {
    km::filter by = filter_of(wanted);
    std::vector<std::string> held;
    for (const auto& one : read_intents())
        held.push_back(one.message);
    json removed = json::array();
    for (const auto& name : message_names()) {
        const auto message = take_selected(name, by, wanted.id);
        if (!message)
            continue;
        if (std::find(held.begin(), held.end(), name) != held.end())
            result.fail(exit_refused, "waiting",
                        name + " is the report of an operation that was cut at its end; 'kmctl "
                               "resume' ends that first.",
                        "refused");
        else if (message->dispose())
            removed.push_back(name);
        else
            result.fail(exit_failed, "remove", name + " cannot be removed.");
    }
    result.data["removed"] = removed;
    result.text = std::to_string(removed.size()) +
                  (removed.size() == 1 ? " report removed" : " reports removed");
    if (!removed.empty() || result.failed())
        return;
    result.text.clear();
    if (!wanted.id.empty())
        result.fail(exit_not_found, "report", "There is no report " + wanted.id + " that waits.");
    else
        result.word = "nothing";
}

} // namespace

void remove_reports(const report_selection& wanted, long wait_seconds, outcome& result) {
    if (!is_readable(result))
        return;
    km::semaphore lock(km::pathname((setting("working_dir") + "/report").c_str()), 0);
    if (lock.wait2(wait_seconds) != km::semaphore::acquired)
        return result.fail(exit_busy, "busy", "Another process is delivering reports; try again.",
                           "pending");
    {
        protocols_to_tell protocols;
        remove_selected(wanted, result);
    }
    lock.signal();
}

void show_notices(outcome& result) {
    result.data["notices"] = json::array();
    for (const auto& one : read_notices(setting("working_dir"))) {
        result.data["notices"].push_back({{"id", one.id}, {"text", one.text}});
        result.text += one.id + "\n" + one.text;
        if (!one.text.empty() && one.text.back() != '\n')
            result.text += '\n';
    }
    if (result.text.empty())
        result.text = "There are no notices";
}

void clear_notices(const std::string& id, outcome& result) {
    const std::string home = setting("working_dir");
    long cleared = 0;
    for (const auto& one : read_notices(home)) {
        std::string why;
        if (!id.empty() && one.id != id)
            continue;
        if (clear_notice(home, one.id, why))
            ++cleared;
        else
            result.fail(exit_failed, "notice", why);
    }
    if (!cleared && !result.failed() && !id.empty())
        return result.fail(exit_not_found, "notice", "There is no notice " + id + ".");
    if (!cleared && !result.failed())
        result.word = "nothing";
    result.data["cleared"] = cleared;
    result.text = std::to_string(cleared) + (cleared == 1 ? " notice" : " notices") + " cleared";
}

} // namespace kmhost
