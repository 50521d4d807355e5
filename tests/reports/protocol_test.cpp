// Channels and their order, proxies, templates, filters and writers.
#include "bulk_list.h"
#include "report_list.h"

#include "reports/report_fixture.h"

#include <gtest/gtest.h>

using namespace km_test;
using km::pathname;
using km::ustring;

namespace {

class Protocol : public testing::Test {
  protected:
    Protocol() {
        home();
        noting_protocol::log = noting_protocol::broken = "";
        noting_protocol::made = 0;
        std::filesystem::remove_all(home().at("st"));
        std::filesystem::create_directories(home().at("st"));
        km::ZNPNotificationPolicy::set_factory(&factory);
        dir = pathname(home().at("st").c_str());
    }
    std::string run(km::report& one, unsigned long key = 0) {
        noting_protocol::log.clear();
        one.set_factory(&factory);
        one.do_log(&dir, key);
        return noting_protocol::log + std::to_string(one.status);
    }
    noting_factory factory;
    pathname dir;
};

struct proxy_kind {
    std::unique_ptr<km::proxy_log_protocol> proxy;
    const char* maker;
};
template <class Proxy> proxy_kind kind_of(const char* maker) {
    return {std::make_unique<Proxy>(), maker};
}

} // namespace

TEST_F(Protocol, OnlyWhatIsUndoneIsTriedAgainAndTheDiskKnowsIt) {
    const std::unique_ptr<km::report> one(new_report("7"));
    noting_protocol::broken = "d";
    EXPECT_EQ(run(*one), "f:7 m:7 e:7 n:7 29");
    EXPECT_EQ(home().read("st/0"), std::string("\x1D\0\0\0", 4));
    // Another process with an older report: the disk wins.
    one->status = 0;
    EXPECT_EQ(run(*one), "29");
    noting_protocol::broken = "";
    EXPECT_EQ(run(*one), "d:7 -1");
    EXPECT_EQ(home().read("st/0"), std::string(4, '\xFF'));
    EXPECT_EQ(run(*one), "-1");
    EXPECT_EQ(noting_protocol::made, 4); // a delegate for each
    EXPECT_EQ(noting_protocol::alive, 0);
}

TEST_F(Protocol, AStatusFileThatIsNoneIsWrittenAnew) {
    const struct {
        std::string content, expected;
    } cases[] = {
        {"", "f:7 d:7 m:7 e:7 n:7 -1"},
        {"abc", "f:7 d:7 m:7 e:7 n:7 -1"},
        {std::string(5, '\xFF'), "f:7 d:7 m:7 e:7 n:7 -1"},
        {std::string("\x0F\0\0\0", 4), "n:7 -1"},
        {std::string("\xF0\0\0\x80", 4), "f:7 d:7 m:7 e:7 -1"}, // bits of nobody
    };
    for (const auto& one : cases) {
        put_file(home().at("st/3"), one.content);
        const std::unique_ptr<km::report> report(new_report("7"));
        EXPECT_EQ(run(*report, 3), one.expected) << one.content.size();
        EXPECT_EQ(home().read("st/3"), std::string(4, '\xFF'));
    }
    // A name that cannot be opened only loses the memory.
    std::filesystem::create_directory(home().at("st/4"));
    const std::unique_ptr<km::report> report(new_report("7"));
    EXPECT_EQ(run(*report, 4), "f:7 d:7 m:7 e:7 n:7 -1");
}

TEST_F(Protocol, AListUsesItsIndexAsKeyAndEndsWithItsLastElement) {
    km::report_list list;
    for (const char* id : {"1", "2", "3"}) {
        const std::unique_ptr<km::report> one(new_report(id));
        list.add(one.get());
    }
    list.set_factory(&factory);
    noting_protocol::broken = "m";
    list.do_log(&dir);
    EXPECT_EQ(list.status, 0);
    for (const char* name : {"st/0", "st/1", "st/2"})
        EXPECT_EQ(home().read(name), std::string("\x1B\0\0\0", 4));
    km::filter second;
    second.add_distribution_id("2");
    km::formatter form("%distribution_id%:%listeners%");
    EXPECT_EQ(written([&](auto& to) { list.remove(second, to, form); }), "2:\n");
    noting_protocol::broken = noting_protocol::log = "";
    list.do_log(&dir, 9); // what is removed stays so, whatever its file says
    EXPECT_EQ(noting_protocol::log, "m:1 m:3 ");
    EXPECT_EQ(list.status, -1);
    km::report_list twice(list);
    twice.add_list(&twice);
    EXPECT_EQ(twice.size(), 6);
}

TEST_F(Protocol, EachProxyAsksItsOwnMaker) {
#define KM_KIND(kind, name) kind_of<km::proxy_##kind>(#name),
    proxy_kind kinds[] = {KM_EACH_MAKER(KM_KIND) kind_of<km::proxy_log_protocol>("nobody")};
#undef KM_KIND
    for (auto& kind : kinds) {
        const auto back = decoded_as<km::proxy_log_protocol>(encoded(*kind.proxy));
        ASSERT_TRUE(back) << kind.maker;
        back->set_factory(&factory);
        ustring logger(u"nobody");
        back->get_logger_name(logger);
        EXPECT_EQ(logger, u(kind.maker));
    }
    EXPECT_TRUE(dynamic_cast<km::proxy_ext_log_protocol*>(kinds[7].proxy.get()));
    EXPECT_TRUE(dynamic_cast<km::proxy_standard_log_protocol*>(kinds[10].proxy.get()));
}

TEST_F(Protocol, ADelegateServesUntilADelivery) {
    const std::unique_ptr<km::report> one(new_report("7"));
    km::filter all;
    km::formatter form;
    // Without a factory nothing is delivered and nothing is written.
    EXPECT_EQ(written([&](auto& to) { one->to_text(all, to, form); }), "");
    one->do_log();
    EXPECT_EQ(one->status, 0);
    one->set_factory(&factory);
    EXPECT_EQ(written([&](auto& to) { one->to_text(all, to, form); }),
              "7 standard [ file, db, mail, evc, notice ] host\n");
    EXPECT_EQ(noting_protocol::alive, 1);
    one->do_log();
    EXPECT_EQ(noting_protocol::made, 1);
    EXPECT_EQ(noting_protocol::alive, 0);
    EXPECT_EQ(written([&](auto& to) { one->to_text(all, to, form); }), "");
    EXPECT_EQ(written([&](auto& to) { one->remove(all, to, form); }), "");
    all.delivered_too = 1;
    EXPECT_EQ(written([&](auto& to) { one->to_text(all, to, form); }), "7 standard [  ] host\n");
}

TEST_F(Protocol, ATemplateIsFieldsTextAndTwoEscapes) {
    class words : public km::formatter {
      public:
        using formatter::formatter;
        ustring _get_optype_str(long type) override { return u("op" + std::to_string(type)); }
        ustring _get_cmop_mode_str(long, long mode, int) override {
            return u("mode" + std::to_string(mode));
        }
    };
    const struct {
        const char* form;
        const char* expected;
    } cases[] = {{"%name%^%version%", "hello^1.0\n"},
                 {"%state% %exception% %primary%", "IC--G no_exception not_primary\n"},
                 {"%operation_type%/%operation_mode%", "op2/mode5\n"},
                 {"[%spo_oid%%base_oid%%nobody%]", "[]\n"},
                 {"100%% a\\tb\\nc", "100% a\tb\nc\n"},
                 {"a\\xb\\\\c", "abc\n"},
                 {"a%name", "a\n"},           // the name was never closed
                 {"a\\", "a\n"},              // an escape of nothing
                 {"x%na\\nme%y", "xna\ny\n"}, // "me" is no field
                 {"", "\n"}};
    const std::unique_ptr<km::report> one(new_report("7"));
    one->operation_type = 2;
    one->operation_mode = 5;
    one->init_protocol(pathname());
    one->set_factory(&factory);
    km::filter all;
    for (const auto& each : cases) {
        words form(each.form);
        EXPECT_EQ(written([&](auto& to) { one->to_text(all, to, form); }), each.expected)
            << each.form;
    }
    ustring names;
    km::formatter_token::kind_list(names);
    EXPECT_EQ(names.find(ustring(u"distribution_id, logger_name, endpoint_name, ")), 0U);
    EXPECT_EQ(km::formatter_token::choose_kind(u"distribution_id"), 3);
    EXPECT_EQ(km::formatter_token::choose_kind(u"listeners"), 25);
    EXPECT_EQ(km::formatter_token::choose_kind(u"Listeners"), 0);
}

TEST_F(Protocol, AFilterGoesByDistributionTargetAndLogger) {
    const struct {
        const char *own, *id, *target, *logger;
        int check_target, expected;
    } cases[] = {
        {"1234", "1234", nullptr, nullptr, 1, 1},     {"5.1234", "1234", nullptr, nullptr, 1, 1},
        {"5.1234", "5.1234", nullptr, nullptr, 1, 1}, {"6.1234", "5.1234", nullptr, nullptr, 1, 0},
        {"1234", "5.1234", nullptr, nullptr, 1, 0},   {"5.1.2", "1.2", nullptr, nullptr, 1, 0},
        {"1", nullptr, "host", nullptr, 1, 1},        {"1", nullptr, "Host", nullptr, 1, 0},
        {"1", nullptr, "Host", nullptr, 0, 1},        {"1", nullptr, nullptr, "noting", 1, 1},
        {"1", nullptr, nullptr, "standard", 1, 0},    {"1", "1", "host", "standard", 1, 0},
        {"1", nullptr, nullptr, nullptr, 1, 1},
    };
    for (const auto& one : cases) {
        noting_protocol::made_by = "noting";
        noting_protocol protocol;
        protocol.distribution_id = u(one.own);
        protocol.endpoint_name = u("host");
        km::filter by;
        by.add_distribution_id(one.id);
        by.add_target_name(one.target);
        by.add_logger_name(one.logger);
        EXPECT_EQ(protocol.test(by, one.check_target), one.expected)
            << one.own << " by " << (one.id ? one.id : "-");
    }
}

TEST(Writer, BytesUtfAndScrambling) {
    auto with = [](int utf, int terminator) {
        return [=](km::output_channel& to) {
            km::ustring_writer out(&to, utf, terminator);
            out.writeln(ustring(u"\u00e4b"));
            out.write("");
        };
    };
    auto bytes = [](auto call) {
        km::array_output_channel to(16);
        call(to);
        return bytes_of(to);
    };
    EXPECT_EQ(bytes(with(0, 0)), "\xC3\xA4"
                                 "b\n");
    EXPECT_EQ(bytes(with(0, 1)), std::string("\xC3\xA4"
                                             "b\0\n\0\0",
                                             7));
    EXPECT_EQ(bytes(with(1, 0)), std::string("\0\3\xC3\xA4"
                                             "b\0\1\n\0\0",
                                             10));
    const unsigned char key[] = {1, 2, 3};
    auto scrambled = [&](const std::vector<const char*>& texts) {
        return bytes([&](auto& to) {
            km::ustring_xor_writer out(&to, key, 3);
            for (const char* text : texts)
                out.write(text);
        });
    };
    const std::string once = scrambled({"ab", "cde"}); // one run through the key
    EXPECT_EQ(once, std::string({'a' ^ 1, 'b' ^ 2, 'c' ^ 3, 'd' ^ 1, 'e' ^ 2}));
    EXPECT_EQ(scrambled({once.c_str()}), "abcde");
}

TEST(BulkList, AKeyFindsTheFirstLineThatHoldsIt) {
    const std::string path = home().at("work/bulk.lst");
    std::filesystem::remove(path);
    EXPECT_FALSE(km::get_bulk_file_name(u"k").is_valid());
    EXPECT_FALSE(km::remove_bulk_file_name(u"k"));
    ASSERT_TRUE(km::set_bulk_file_name(u"key10", u"/d/ten"));
    ASSERT_TRUE(km::set_bulk_file_name(u"key1", u"/d/one"));
    EXPECT_EQ(get_file(path), "key10 /d/ten\nkey1 /d/one\n");
    EXPECT_STREQ(km::get_bulk_file_name(u"key10").mbcs_str(), "/d/ten");
    EXPECT_STREQ(km::get_bulk_file_name(u"key1").mbcs_str(), "0 /d/ten");
    EXPECT_FALSE(km::get_bulk_file_name(u"k*????????????*").is_valid()); // longer than the line
    ASSERT_TRUE(km::remove_bulk_file_name(u"key10"));
    EXPECT_STREQ(km::get_bulk_file_name(u"key1").mbcs_str(), "/d/one");
    ASSERT_TRUE(km::remove_bulk_file_name(u"key1"));
    EXPECT_FALSE(std::filesystem::exists(path));
}
