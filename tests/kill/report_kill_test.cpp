// A process that dies at any step of a message's life: each channel gets each report once.
#include "reports/report_fixture.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

using namespace km_test;
using km::StatusHandler;

namespace {

// The whole life: one message made and written, then delivered by a process that loads it.
void live() {
    {
        km::ZNPMessage message;
        message.init(new_report("7"), km::priority_a);
        if (!message.serialize(0))
            ::_exit(1);
    }
    put_file(home().at("written"), "yes");
    deliver_all();
}

// The lines that are held, sorted, and how many more there are of them.
std::pair<std::string, int> held() {
    std::istringstream all(get_file(holding_protocol::held));
    std::set<std::string> lines;
    int count = 0;
    for (std::string line; all >> line; ++count)
        lines.insert(line);
    std::string text;
    for (const auto& line : lines)
        text += line;
    return {text, count - static_cast<int>(lines.size())};
}

bool dies_at(const std::string& point, void (*body)()) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("KM_KILL_AT", point.c_str(), 1);
        body();
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

} // namespace

TEST(ReportKill, EveryChannelHoldsTheReportOnce) {
    holding_protocol::held = home().at("held");
    holding_factory factory;
    km::ZNPNotificationPolicy::set_factory(&factory);
    for (const std::string point :
         {"status.make.created", "durable.before_rename", "durable.after_rename",
          "status.commit.written", "status.commit.side_removed", "status.commit.side_removed:2",
          "durable.before_rename:2", "durable.after_rename:2", "report.channel.done",
          "report.channel.noted", "report.channel.done:3", "report.channel.noted:5",
          "status.remove.backup_gone", "status.remove.file_gone", "message.dispose.file_gone"}) {
        empty_messages();
        std::filesystem::remove(holding_protocol::held);
        std::filesystem::remove(home().at("written"));
        ASSERT_TRUE(dies_at(point, live)) << point;
        const bool promised = home().exists("written");
        // A second death while the first one is mended.
        for (const char* again :
             {"status.open.warned", "status.open.restored", "report.channel.noted"})
            dies_at(again, deliver_all);
        deliver_all();
        const auto [once, again] = held();
        EXPECT_TRUE(once == "d7e7f7m7n7" || (!promised && once.empty())) << point << once;
        // Only the channel that died behind its answer takes it again.
        EXPECT_EQ(again, point.find("channel.done") == std::string::npos ? 0 : 1) << point;
        km::ZNPMessage::remove_orphans();
        EXPECT_EQ(names().find("_msg_statuses"), std::string::npos) << point << names();
    }
}

TEST(ReportKill, TheOldStateComesBackAtEachStepOfAnOpening) {
    home();
    for (const std::string point : {"status.open.warned", "durable.before_rename",
                                    "durable.after_rename", "status.open.restored"}) {
        empty_messages();
        put_file(message_dir() + "MSA1", encoded(u("new")));
        put_file(message_dir() + "MSA1.bak", encoded(u("old")));
        auto load = [] {
            delete StatusHandler().load(km::ZNPMessage::get_work_dir(), km::ustring(u"MS"));
        };
        ASSERT_TRUE(dies_at(point, load)) << point;
        const std::unique_ptr<km::vector> all(
            StatusHandler().load(km::ZNPMessage::get_work_dir(), km::ustring(u"MS")));
        ASSERT_EQ(all->size(), 1) << point;
        const std::string text = all->at<km::ustring>(0)->mbcs_str();
        EXPECT_TRUE(text == "old" || text == "new") << point;
    }
}
