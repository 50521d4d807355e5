// report_delivery: brings the reports that wait to their channels
// no format
// invariant: a message goes away when all its channels are done, and not before
#include "report_delivery.h"

#include "StatusHandler.h"
#include "file.h"
#include "intent.h"
#include "lockfile.h"
#include "message.h"
#include "message_files.h"
#include "report_notice.h"
#include "report_protocol.h"
#include "stop_request.h"

#include <algorithm>
#include <memory>
#include <set>
#include <unistd.h>

namespace kmhost {

namespace {

struct pass_result {
    bool was_locked = false; // another process delivers
    bool is_blind = false;   // no message can be decoded
    long delivered = 0;
    long left = 0;
    long aside = 0;   // what is no message, now in "removed"
    long waiting = 0; // of what is left: their operation has not ended
};

// The message is written in front of the end of its operation: what is cut there ends at the next
// call, and must find the message.
std::set<std::string> messages_of_intents() {
    std::set<std::string> names;
    for (const auto& one : read_intents())
        names.insert(one.message);
    return names;
}

class pass {
  public:
    pass(delivery_watch& watch, worker_line* line, pass_result& result)
        : watch_(watch), line_(line), result_(result), handler_(nullptr, 1) {}
    void run();

  private:
    void deliver(const km::pathname& path, const std::string& name);
    std::unique_ptr<km::ZNPMessage> load(const km::pathname& path, const std::string& name);

    delivery_watch& watch_;
    worker_line* line_;
    pass_result& result_;
    // A backup beside a message would count a second end in the middle as its fault.
    km::StatusHandler handler_;
};

std::unique_ptr<km::ZNPMessage> pass::load(const km::pathname& path, const std::string& name) {
    std::unique_ptr<km::codable> object(handler_._load_obj(path));
    auto* message = dynamic_cast<km::ZNPMessage*>(object.get());
    if (message && is_named(*message, name)) {
        object.release();
        return std::unique_ptr<km::ZNPMessage>(message);
    }
    if (object)
        put_aside(name);
    ++result_.aside;
    return nullptr;
}

void pass::deliver(const km::pathname& path, const std::string& name) {
    const auto message = load(path, name);
    if (!message)
        return;
    const km::report* one = report_in(*message);
    const long before = one ? message->get_policy()->get_status() : 0;
    watch_.message = name;
    message->execute();
    if (!one || message->get_policy()->get_status() != before)
        message->serialize(1);
    else if (message->is_disposable())
        message->dispose();
    ++(message->is_disposable() ? result_.delivered : result_.left);
}

void pass::run() {
    km::ZNPMessage::remove_orphans();
    result_.aside = put_strangers_aside();
    km::vector paths;
    handler_.load_dir(km::ZNPMessage::get_work_dir(), km::ZNPMessage::get_msg_prefix(), paths);
    const auto held =
        messages_of_intents(); // behind the listing: what was written since is not in it
    for (int i = 0; i < paths.size(); ++i) {
        const auto& path = *paths.at<km::pathname>(i);
        const std::string name = path.get_file().mbcs_str();
        if (line_)
            line_->progress({i + 1, paths.size(), name});
        if (held.count(name)) {
            ++result_.waiting;
            ++result_.left;
        } else if (watch_.is_over() || km::stop_requested()) {
            ++result_.left;
        } else {
            deliver(path, name);
        }
    }
    remove_half_written();
    remove_bulk_data();
    if (result_.left > 0)
        return;
    // No report can be repeated: what tells repeats can go.
    forget_cleared_notices(setting("working_dir"));
    km::file(km::pathname((setting("working_dir") + "/deliveries").c_str())).remove(1);
}

pass_result deliver_all(delivery_watch& watch, long wait_seconds, worker_line* line) {
    pass_result result;
    km::semaphore lock(km::pathname((setting("working_dir") + "/report").c_str()), 0);
    if (lock.wait2(wait_seconds) != km::semaphore::acquired) {
        result.was_locked = true;
        return result;
    }
    report_protocols protocols(&watch);
    km::ZNPNotificationPolicy::set_factory(&protocols);
    result.is_blind = !can_decode_messages();
    if (!result.is_blind)
        pass(watch, line, result).run();
    km::ZNPNotificationPolicy::set_factory(nullptr);
    lock.signal();
    return result;
}

std::string reports(long count) {
    return std::to_string(count) + (count == 1 ? " report" : " reports");
}

std::string reasons(const delivery_watch& watch) {
    std::string text;
    for (size_t i = 0; i < channel_names.size(); ++i)
        if (const auto& one = watch.courses()[i]; one.failed)
            text += (text.empty() ? "" : "; ") + std::string(channel_names[i]) + ": " + one.why;
    return text;
}

nlohmann::json channels_json(const delivery_watch& watch) {
    auto all = nlohmann::json::object();
    for (size_t i = 0; i < channel_names.size(); ++i)
        if (const auto& one = watch.courses()[i]; one.failed || one.done)
            all[channel_names[i]] = {{"done", one.done}, {"failed", one.failed}, {"why", one.why}};
    return all;
}

void tell_aside(const pass_result& came, outcome& result) {
    if (came.aside)
        result.warn("aside", std::to_string(came.aside) +
                                 " files that are no messages were moved to " +
                                 setting("working_dir") + "/message/removed.");
}

// What counts as delivered, and may not be.
void tell_doubts(const delivery_watch& watch, outcome& result) {
    for (size_t i = 0; i < channel_names.size(); ++i)
        if (const auto& one = watch.courses()[i]; !one.doubt.empty())
            result.warn("doubt", std::string(channel_names[i]) + ": " + one.doubt + ".");
}

void tell_left(const pass_result& came, const delivery_watch& watch, outcome& result) {
    for (size_t i = 0; i < channel_names.size(); ++i)
        if (const auto& one = watch.courses()[i]; one.failed)
            result.fail(exit_failed, "channel",
                        std::string(channel_names[i]) + ": " + one.why + " (" +
                            reports(one.failed) + ")");
    if (came.waiting)
        result.fail(exit_failed, "waiting",
                    reports(came.waiting) + " of operations that were cut at their end; 'kmctl "
                                            "resume' ends them");
    if (!result.failed())
        result.fail(exit_failed, "stopped", "The delivery was stopped.");
}

} // namespace

void deliver_reports(long wait_seconds, worker_line& line, outcome& result) {
    delivery_watch watch(read_report_settings(), 0);
    const auto came = deliver_all(watch, wait_seconds, &line);
    if (came.was_locked)
        return result.fail(exit_busy, "busy", "Another process is delivering reports; try again.",
                           "pending");
    if (came.is_blind)
        return result.fail(exit_failed, "libraries",
                           "No message can be read: the list of libraries in " + data_directory() +
                               " is missing or wrong.");
    result.data["delivered"] = came.delivered;
    result.data["left"] = came.left;
    result.data["channels"] = channels_json(watch);
    if (!came.delivered && !came.left)
        result.word = "nothing";
    result.text = reports(came.delivered) + " delivered, " + std::to_string(came.left) + " left";
    tell_aside(came, result);
    tell_doubts(watch, result);
    if (came.left)
        tell_left(came, watch, result);
}

void deliver_at_the_end(const location& where, outcome& result) {
    constexpr unsigned grace_seconds = 5;
    const auto body = [&where](worker_line&, outcome& told) {
        if (!enter_location(where, told))
            return;
        const auto settings = read_report_settings();
        // A channel that hangs in the system itself ends with this process.
        ::alarm(static_cast<unsigned>(settings.timeout) + grace_seconds);
        delivery_watch watch(settings, settings.timeout);
        const auto came = deliver_all(watch, 0, nullptr);
        if (const auto why = reasons(watch); !why.empty())
            told.warn("report", reports(came.left) + " could not be delivered (" + why +
                                    "); 'kmctl report deliver' tries again.");
        tell_aside(came, told);
        tell_doubts(watch, told);
    };
    worker_end end;
    const outcome told = run_worker(body, {}, &end);
    if (end.ended_early)
        result.warn("report", "The delivery of reports was cut short; 'kmctl report deliver' goes "
                              "on with it.");
    else
        for (const auto& one : told.messages)
            if (one.level == severity::warning)
                result.messages.push_back(one);
}

} // namespace kmhost
