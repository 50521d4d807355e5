// report_protocol: the protocols of this host, which bring reports to its channels
#pragma once

#include "log_protocol_factory.h"
#include "report_channels.h"

#include <array>
#include <string>

namespace km {
class log_protocol;
} // namespace km

namespace kmhost {

constexpr std::array<const char*, 5> channel_names{"file", "db", "mail", "evc", "notice"};

// What a pass over the reports has come to on one channel.
struct channel_course {
    long done = 0;
    long failed = 0;
    int failed_in_a_row = 0;
    std::string why;   // of the last failure
    std::string doubt; // why nobody knows whether a report that counts as done came
};

// Watches over a pass: a channel that keeps failing is left alone for its rest, and with a budget
// nothing begins behind its end.
class delivery_watch {
  public:
    // `budget`: seconds for the whole pass; 0: as long as it takes.
    delivery_watch(const report_settings& settings, long budget);
    // Not 0: the channel holds the report or is not set up.
    int deliver(size_t channel, const report_fields& report);
    // Whether going on makes no sense: the time is over, or no channel works.
    bool is_over() const;
    bool is_late() const { return seconds_left() <= 0; }
    const std::array<channel_course, channel_names.size()>& courses() const { return courses_; }
    // The file of the message whose reports are delivered.
    std::string message;

  private:
    long seconds_left() const;
    report_settings settings_;
    long end_; // seconds of the monotonic clock, 0: none
    std::array<channel_course, channel_names.size()> courses_;
};

// Makes protocols that deliver by way of the watch, which is lent; with a null one nothing is
// delivered, for what only tells of reports.
class report_protocols : public km::log_protocol_factory {
  public:
    explicit report_protocols(delivery_watch* watch) : watch_(watch) {}
    km::log_protocol* make_standard_log_protocol() override { return make("standard"); }
    km::log_protocol* make_bulk_log_protocol() override { return make("bulk"); }
    km::log_protocol* make_delete_db_entries() override { return make("delete_db_entries"); }
    km::log_protocol* make_delete_db_entry() override { return make("delete_db_entry"); }
    km::log_protocol* make_add_db_entry() override { return make("add_db_entry"); }
    km::log_protocol* make_edit_db_entry() override { return make("edit_db_entry"); }
    km::log_protocol* make_ext_log_protocol() override { return make("ext"); }
    km::log_protocol* make_dm_log_protocol() override { return make("dm"); }
    km::log_protocol* make_inventory_log_protocol() override { return make("inventory"); }
    km::log_protocol* make_gw_protocol() override { return make("gw"); }
    km::log_protocol* make_post_log_protocol() override { return make("post"); }
    km::log_protocol* make_publish() override { return make("publish"); }
    km::log_protocol* make_vfan2_db_log_protocol() override { return make("vfan2_db"); }
    km::log_protocol* make_web_protocol() override { return make("web"); }
    km::log_protocol* make_device_log_protocol() override { return make("device"); }
    km::log_protocol* make_versioning_log_protocol() override { return make("versioning"); }
    km::log_protocol* make_discover_log_protocol() override { return make("discover"); }

  private:
    km::log_protocol* make(const char* logger_name) const;
    delivery_watch* watch_;
};

// The report's own key, or one of its fields and the name of its message where it has none.
std::string key_of(const km::log_protocol& report, const std::string& message);

} // namespace kmhost
