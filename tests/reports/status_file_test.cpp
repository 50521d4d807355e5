// Status files and what lies beside them, and the life of messages.
#include "composite_message.h"
#include "file.h"

#include "reports/report_fixture.h"

#include "support/has.h"

#include <chrono>
#include <map>
#include <sstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace km_test;
using km::pathname;
using km::StatusHandler;
using km::ustring;

namespace {

const ustring prefix(u"MS");

pathname dir() { return pathname(message_dir().c_str()); }

// A whole object as a file holds it: "=text". Any other content stands for itself.
std::string content(const std::string& text) {
    return !text.empty() && text[0] == '=' ? encoded(u(text.substr(1))) : text;
}

std::string shown(const std::string& name) {
    const std::string bytes = get_file(message_dir() + name);
    const auto object = decoded_as<ustring>(bytes);
    return object ? std::string("=") + object->mbcs_str() : bytes;
}

void put(const std::map<std::string, std::string>& files) {
    empty_messages();
    for (const auto& [name, text] : files) {
        const std::string path = message_dir() + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        put_file(path, content(text));
    }
}

// " name=content" of every file, those of "removed" behind "removed:".
std::string left() {
    std::string all;
    for (const std::string below : {"", "removed/"}) {
        std::istringstream each(names(below));
        for (std::string name; each >> name;)
            if (name != "removed")
                all += (all.empty() ? "" : " ") + below + name + shown(below + name);
    }
    return all;
}

std::string loaded() {
    const std::unique_ptr<km::vector> objects(StatusHandler().load(dir(), prefix));
    std::string all;
    for (int i = 0; i < objects->size(); ++i)
        all += std::string(objects->at<ustring>(i)->mbcs_str()) + " ";
    return all;
}

std::string listed(long* bytes = nullptr) {
    km::vector paths;
    const long sum = StatusHandler().load_dir(dir(), prefix, paths);
    if (bytes)
        *bytes = sum;
    std::string all;
    for (int i = 0; i < paths.size(); ++i)
        all += std::string(paths.at<pathname>(i)->get_file().mbcs_str()) + " ";
    return all;
}

} // namespace

TEST(StatusFile, LoadMakesTheBestOfWhatACrashLeft) {
    const struct {
        std::map<std::string, std::string> files;
        const char *objects, *left;
    } cases[] = {
        {{}, "", ""},
        {{{"MSA1", ""}, {"MSA1.bak", ""}}, "", "MSA1 MSA1.bak"},
        {{{"MSA1", "=new"}}, "new ", "MSA1=new MSA1.bak=new"},
        {{{"MSA1", "=new"}, {"MSA1.bak", "=old"}}, "old ", "MSA1=old MSA1.wrn=old"},
        {{{"MSA1", "torn"}, {"MSA1.bak", "=old"}}, "old ", "MSA1=old MSA1.wrn=old"},
        {{{"MSA1", ""}, {"MSA1.bak", "=old"}}, "old ", "MSA1=old MSA1.bak=old"},
        {{{"MSA1.bak", "=old"}}, "old ", "MSA1=old MSA1.bak=old"},
        {{{"MSA1.wrn", "=old"}}, "old ", "MSA1=old MSA1.bak=old"},
        {{{"MSA1", "torn"}, {"MSA1.wrn", "=old"}},
         "old ",
         "MSA1=old MSA1.bak=old removed/MSA1torn"},
        // A first writing that was whole when the crash came, and one that was not.
        {{{"MSA1", "=new"}, {"MSA1.bak", ""}}, "new ", "MSA1=new MSA1.bak=new"},
        {{{"MSA1", "torn"}, {"MSA1.bak", ""}}, "", "removed/MSA1torn"},
        {{{"MSA1", "torn"}, {"MSA1.bak", "bad"}}, "", "MSA1.wrnbad removed/MSA1bad"},
        // The rest goes on; priority goes before time; other names are not looked at.
        {{{"MSB1", "=b"}, {"MSA2", "junk"}, {"MSA3", "=a"}, {"XSA1", "=x"}, {".MSA9.new", "=t"}},
         "a b ",
         ".MSA9.new=t MSA3=a MSA3.bak=a MSB1=b MSB1.bak=b XSA1=x removed/MSA2junk"},
    };
    for (const auto& one : cases) {
        put(one.files);
        EXPECT_EQ(loaded(), one.objects) << one.left;
        EXPECT_EQ(left(), one.left);
    }
}

TEST(StatusFile, LoadDirGathersPathsAndPutsAsideWhatFailedOnce) {
    const struct {
        std::map<std::string, std::string> files;
        const char *paths, *left;
    } cases[] = {
        {{}, "", ""},
        {{{"MSA1", ""}, {"MSA2", "=b"}}, "MSA2 ", "MSA1 MSA2=b"},
        {{{"MSA1", "=a"}, {"MSA1.bak", "=o"}}, "MSA1 ", "MSA1=a MSA1.bak=o"},
        {{{"MSA1.bak", "=o"}}, "MSA1 ", "MSA1=o MSA1.bak=o"},
        {{{"MSA1", "=a"}, {"MSA1.wrn", "=o"}, {"MSA1_msg_statuses/0", "1234"}, {"MSB1", "=b"}},
         "MSB1 ",
         "MSB1=b removed/MSA1.wrn=o"},
        {{{"MSA1.bak", "=o"}, {"removed/MSA1.wrn", "=o"}}, "", "removed/MSA1.wrn=o"},
    };
    for (const auto& one : cases) {
        put(one.files);
        long bytes = 0;
        EXPECT_EQ(listed(&bytes), one.paths) << one.left;
        EXPECT_EQ(left(), one.left);
        EXPECT_EQ(bytes > 0, *one.paths != 0);
    }
    put({{"MSA1", "=a"}, {"MSA1.bak", "=o"}, {"x", ""}});
    EXPECT_EQ(StatusHandler().load_dir_test(dir(), prefix), 2);
}

TEST(StatusFile, ACommitIsWholeOrLeavesEverythingAsItWas) {
    put({{"MSA1", "=old"}, {"MSA1.bak", "=old"}, {"MSA1.wrn", "=older"}});
    const pathname path = dir() + ustring(u"MSA1");
    const ustring object(u"new");
    StatusHandler handler(new ustring(u"own"));
    if (::geteuid() != 0) {
        std::filesystem::permissions(message_dir(), std::filesystem::perms(0500));
        EXPECT_EQ(handler.commit(path, &object), 0);
        std::filesystem::permissions(message_dir(), std::filesystem::perms(0700));
        EXPECT_EQ(left(), "MSA1=old MSA1.bak=old MSA1.wrn=older");
    }
    std::filesystem::create_directory(message_dir() + ".MSA1.new");
    put_file(message_dir() + ".MSA1.new/x", "");
    EXPECT_EQ(handler.commit(path, &object), 0);
    std::filesystem::remove_all(message_dir() + ".MSA1.new");
    EXPECT_EQ(left(), "MSA1=old MSA1.bak=old MSA1.wrn=older");
    EXPECT_EQ(handler.commit(path, &object), 1);
    EXPECT_EQ(left(), "MSA1=new");
    EXPECT_EQ(handler.commit(path), 1);
    EXPECT_EQ(left(), "MSA1=own");
    EXPECT_EQ(handler.commit(pathname()), 0);
    put({{"MSA1", "=a"}, {"MSA1.bak", "=b"}, {"MSA1.wrn", "=c"}, {"MSA2", "=d"}});
    EXPECT_EQ(handler.rollback(path), 1);
    EXPECT_EQ(left(), "MSA1=a MSA1.wrn=c MSA2=d");
    EXPECT_EQ(handler.remove(path), 1);
    EXPECT_EQ(left(), "MSA2=d");
}

TEST(StatusFile, NamesOfOneSecondDoNotRunOut) {
    empty_messages();
    std::string last;
    for (int i = 0; i < 300; ++i) {
        long id = 0;
        pathname path;
        ASSERT_EQ(StatusHandler::make_msg_file(id, 'B', path, dir() + ustring(u"/"), prefix), 1);
        const std::string name = path.get_file().mbcs_str();
        EXPECT_EQ(name.size(), 14U);
        EXPECT_LT(last, name);
        EXPECT_EQ(std::stol(name.substr(3)), id);
        last = name;
    }
    pathname none;
    long id = 0;
    EXPECT_EQ(StatusHandler::make_msg_file(id, 'A', none, pathname("/proc/none/"), prefix), 0);
}

TEST(MessageLife, FromInitToItsDisposal) {
    empty_messages();
    noting_factory factory;
    km::ZNPNotificationPolicy::set_factory(&factory);
    noting_protocol::log = "";
    noting_protocol::broken = "m";
    {
        km::ZNPMessage message;
        ASSERT_TRUE(message.init(new_report("7"), static_cast<km::priority_t>(17)));
        EXPECT_EQ(message.get_path().get_file()[2], u'A');
        ASSERT_TRUE(message.serialize(0));
        put_file(message.get_status_directory().mbcs_str(), "stale");
        message.execute();
        ASSERT_TRUE(message.serialize(1));
    }
    EXPECT_EQ(noting_protocol::log, "f:7 d:7 e:7 n:7 ");
    noting_protocol::broken = noting_protocol::log = "";
    const std::unique_ptr<km::vector> again(StatusHandler().load(dir(), prefix));
    ASSERT_EQ(again->size(), 1);
    auto& message = *again->at<km::ZNPMessage>(0);
    EXPECT_TRUE(message.is_valid());
    message.execute();
    EXPECT_EQ(noting_protocol::log, "m:7 ");
    ASSERT_TRUE(message.serialize(1));
    EXPECT_EQ(names(), "");
}

TEST(MessageLife, AListOfPoliciesCountsItsKeysAndANameIsNeverSomebodyElses) {
    empty_messages();
    noting_factory factory;
    km::ZNPNotificationPolicy::set_factory(&factory);
    noting_protocol::log = noting_protocol::broken = "";
    auto* policies = new km::ZNPNotificationList;
    auto* last = new km::ZNPNotificationPolicy(new_report("3"));
    policies->add(last, nullptr);
    policies->add(new km::ZNPNotificationPolicy(new_report("1")), last);
    policies->add(new km::ZNPNotificationPolicy(new_report("2")), last);
    km::ZNPMessage message;
    ASSERT_TRUE(message.init(new_report("0"), km::priority_b));
    message.set_policy(policies);
    EXPECT_FALSE(message.is_disposable());
    message.execute();
    EXPECT_EQ(names(message.get_path().get_file().mbcs_str() + std::string("_msg_statuses")),
              " 0 1 2");
    EXPECT_EQ(noting_protocol::log, "f:1 d:1 m:1 e:1 n:1 f:2 d:2 m:2 e:2 n:2 f:3 d:3 m:3 e:3 n:3 ");
    EXPECT_TRUE(message.is_disposable());
    ASSERT_TRUE(message.dispose());
    EXPECT_EQ(names(), "");
    // What a process that died while it disposed left must not speak for the next message.
    for (int i = 1; i < 4; ++i)
        std::filesystem::create_directory(message_dir() + "MSB0" +
                                          std::to_string(message.get_id() + i) + "_msg_statuses");
    km::ZNPMessage next;
    ASSERT_TRUE(next.init(new_report("0"), km::priority_b));
    EXPECT_FALSE(std::filesystem::exists(next.get_status_directory().mbcs_str()));
    EXPECT_HAS(names(), "_msg_statuses");
}

TEST(MessageLife, OrphansGoAndNothingElseDoes) {
    put({{"MSA1_msg_statuses/0", "1234"},
         {"MSA2_msg_statuses/0", "1234"},
         {"MSA2.wrn", "=w"},
         {"MSA3", ""},
         {"MSA3.bak", ""},
         {"MSA4", ""},
         {"MSA4.bak", "=b"},
         {"MSA5", ""},
         {"MSA6", "=whole"}});
    for (const char* name : {"MSA3", "MSA4", "MSA6"})
        std::filesystem::last_write_time(message_dir() + name,
                                         std::filesystem::file_time_type::clock::now() -
                                             std::chrono::hours(2));
    km::ZNPMessage::remove_orphans();
    EXPECT_EQ(names(), " MSA2.wrn MSA2_msg_statuses MSA4 MSA4.bak MSA5 MSA6");
}

TEST(MessageLife, ACompositeRunsOnEachAndTheYoungestComesFirst) {
    empty_messages();
    km::CompositeMessage all;
    for (const char* id : {"1", "2", "3"}) {
        auto* one = new km::ZNPMessage;
        ASSERT_TRUE(one->init(new_report(id), km::priority_a));
        all.add(one);
    }
    all.sort();
    EXPECT_GT(all[0]->get_id(), all[1]->get_id());
    EXPECT_GT(all[1]->get_id(), all[2]->get_id());
    const km::Message *older = all[2], *younger = all[0];
    EXPECT_EQ(km::compare_msgs_ic(&younger, &older), 1);
    EXPECT_EQ(km::compare_msgs_ic(&older, &younger), 0);
    noting_factory factory;
    km::ZNPNotificationPolicy::set_factory(&factory);
    noting_protocol::log = noting_protocol::broken = "";
    EXPECT_TRUE(all.serialize(0));
    EXPECT_TRUE(all.rollback());
    km::filter some;
    some.add_distribution_id("2");
    km::formatter form("%name%");
    EXPECT_EQ(written([&](auto& to) { all.remove(some, to, form); }), "hello\n");
    all.execute();
    EXPECT_EQ(noting_protocol::log, "f:3 d:3 m:3 e:3 n:3 f:1 d:1 m:1 e:1 n:1 ");
    EXPECT_TRUE(all.is_disposable());
    EXPECT_TRUE(all.serialize(1));
    EXPECT_EQ(names(), "");
}
