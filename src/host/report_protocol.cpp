// report_protocol: the protocols of this host, which bring reports to its channels
// no format
// invariant: what is answered as done is done, or not set up
#include "report_protocol.h"

#include "digest.h"
#include "log_protocol.h"
#include "report_words.h"
#include "status_words.h"

#include <algorithm>
#include <memory>
#include <time.h>

namespace kmhost {

namespace {

long now_seconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

constexpr int most_failures_in_a_row = 3;

using deliverer = delivery (*)(const report_fields&, const report_settings&, std::string&);
constexpr deliverer deliverers[] = {deliver_to_file, deliver_to_db, deliver_to_mail,
                                    deliver_to_event, deliver_to_notice};

// What stands in files as one line.
std::string on_one_line(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

} // namespace

// Within a budget one channel that hangs leaves the others their share.
delivery_watch::delivery_watch(const report_settings& settings, long budget)
    : settings_(settings), end_(budget ? now_seconds() + budget : 0) {
    if (budget)
        settings_.timeout = std::max(1L, budget / std::max(1L, count_channels(settings)));
}

long delivery_watch::seconds_left() const {
    return end_ ? end_ - now_seconds() : settings_.timeout;
}

int delivery_watch::deliver(size_t channel, const report_fields& report) {
    auto& course = courses_[channel];
    if (course.failed_in_a_row >= most_failures_in_a_row) {
        ++course.failed;
        return 0;
    }
    report_settings settings = settings_;
    settings.timeout = std::min(settings_.timeout, seconds_left());
    std::string why;
    auto answer = delivery::failed;
    if (settings.timeout > 0)
        answer = deliverers[channel](report, settings, why);
    else
        why = "there was no time left";
    if (answer == delivery::failed) {
        ++course.failed;
        ++course.failed_in_a_row;
        course.why = on_one_line(why);
        return 0;
    }
    course.failed_in_a_row = 0;
    if (!why.empty())
        course.doubt = on_one_line(why);
    course.done += answer == delivery::done;
    return 1;
}

bool delivery_watch::is_over() const {
    const bool any_failed =
        std::any_of(courses_.begin(), courses_.end(),
                    [](const channel_course& one) { return one.failed_in_a_row > 0; });
    const bool any_works = std::any_of(courses_.begin(), courses_.end(), [](const auto& one) {
        return one.done > 0 && one.failed_in_a_row < most_failures_in_a_row;
    });
    const bool any_open = std::any_of(courses_.begin(), courses_.end(), [](const auto& one) {
        return one.failed_in_a_row > 0 && one.failed_in_a_row < most_failures_in_a_row;
    });
    return is_late() || (any_failed && !any_works && !any_open);
}

namespace {

bool is_key(const std::string& text) {
    constexpr size_t most = 64;
    return !text.empty() && text.size() <= most &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return (c < 0x80 && std::isalnum(c)) || c == '-'; });
}

report_fields fields_of(const km::log_protocol& from, const std::string& message) {
    report_fields all;
    const auto text = [](const km::ustring& field) { return std::string(field.mbcs_str()); };
    char letters[6];
    km::dbstatus_to_str(from.state, letters);
    all.key = key_of(from, message);
    all.distribution_id = text(from.distribution_id);
    all.name = text(from.name);
    all.version = text(from.version);
    all.spname = text(from.spname);
    all.operation = operation_word(from.operation_type);
    all.mode = mode_words(from.operation_mode);
    all.operation_type = from.operation_type;
    all.operation_mode = from.operation_mode;
    all.state = letters;
    all.message = text(from.message);
    all.exit_codes_msg = text(from.exit_codes_msg);
    all.endpoint_name = text(from.endpoint_name);
    all.endpoint_id = text(from.endpoint_id);
    all.endpoint_guid = text(from.endpoint_guid);
    all.spo_oid = text(from.spo_oid);
    all.base_name = text(from.base_name);
    all.base_version = text(from.base_version);
    all.base_oid = text(from.base_oid);
    all.origin_user = text(from.origin_user);
    all.user_name = text(from.user_name);
    all.exec_time = text(from.exec_time);
    all.pathname = from.path.is_valid() ? from.path.mbcs_str() : "";
    all.exception = from.exception != 0;
    all.primary = from.primary != 0;
    return all;
}

class host_protocol : public km::uncoded<km::log_protocol> {
  public:
    host_protocol(delivery_watch* watch, const char* logger_name)
        : watch_(watch), logger_name_(logger_name) {}
    codable* clone() const override { return new host_protocol(*this); }
    void initialize(long type, long mode, const km::ustring& endpoint, const km::ustring& its_id,
                    const km::ustring& its_guid, const km::ustring& object_id,
                    const km::ustring& base, const km::ustring& version_of_base,
                    const km::ustring& id_of_base, const km::ustring& origin,
                    const km::ustring& time, const km::ustring& user, const km::ustring& text,
                    const km::ustring& exit_codes, long state_word, const km::ustring& distribution,
                    const km::ustring& package, const km::ustring& package_version,
                    const km::ustring& package_spname, const km::pathname& data, int is_exception,
                    int is_primary, km::codable* further) override {
        km::log_protocol::initialize(type, mode, endpoint, its_id, its_guid, object_id, base,
                                     version_of_base, id_of_base, origin, time, user, text,
                                     exit_codes, state_word, distribution, package, package_version,
                                     package_spname, data, is_exception, is_primary, further);
    }
    int do_file_log() override { return deliver(0); }
    int do_db_log() override { return deliver(1); }
    int do_mail_log() override { return deliver(2); }
    int do_event_log() override { return deliver(3); }
    int do_notice_log() override { return deliver(4); }
    void get_logger_name(km::ustring& name) override { name = km::ustring(logger_name_); }

  private:
    int deliver(size_t channel) {
        return watch_ ? watch_->deliver(channel, fields_of(*this, watch_->message)) : 0;
    }
    delivery_watch* watch_;
    const char* logger_name_;
};

} // namespace

std::string key_of(const km::log_protocol& report, const std::string& message) {
    if (const auto* key = dynamic_cast<const km::ustring*>(report.opt_params))
        if (const std::string text = key->mbcs_str(); is_key(text))
            return text;
    std::string whole = message;
    for (const km::ustring* field :
         {&report.distribution_id, &report.name, &report.version, &report.spname,
          &report.endpoint_name, &report.endpoint_id, &report.endpoint_guid, &report.spo_oid,
          &report.base_name, &report.base_version, &report.base_oid, &report.origin_user,
          &report.user_name, &report.exec_time, &report.message, &report.exit_codes_msg})
        whole += '\0' + std::string(field->mbcs_str());
    for (const long number :
         {report.operation_type, report.operation_mode, report.state,
          static_cast<long>(report.exception), static_cast<long>(report.primary)})
        whole += '\0' + std::to_string(number);
    constexpr size_t enough = 40; // hexadecimal digits
    return km::digest_of(whole).substr(0, enough);
}

km::log_protocol* report_protocols::make(const char* logger_name) const {
    return new host_protocol(watch_, logger_name);
}

} // namespace kmhost
