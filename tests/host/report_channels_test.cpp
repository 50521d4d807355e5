#include "report_channels.h"
#include "report_notice.h"
#include "report_protocol.h"
#include "report_words.h"

#include "engine_types.h"
#include "log_protocol.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace {

using kmhost::delivery;
namespace fs = std::filesystem;

std::string content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void put(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

class Reports : public testing::Test {
  protected:
    Reports() {
        settings.working_directory = dir.path() + "/work";
        settings.file = dir.path() + "/out/reports";
        settings.db = dir.path() + "/out/reports.db";
        settings.file_template = "%name%";
        settings.notice = true;
        settings.timeout = 1;
        fs::create_directories(settings.working_directory);
    }
    kmhost::report_fields report(const std::string& key, const std::string& name) {
        kmhost::report_fields one;
        one.key = key;
        one.name = name;
        return one;
    }
    delivery file(const std::string& key, const std::string& name) {
        return deliver_to_file(report(key, name), settings, why);
    }
    std::string journal() const { return settings.working_directory + "/report.journal"; }
    // As behind a process that died before it noted that the line is written.
    void forget_the_end() {
        std::string bytes = content(journal());
        bytes[0] = '0';
        put(journal(), bytes);
    }

    km_test::scratch_dir dir;
    kmhost::report_settings settings;
    std::string why;
};

TEST_F(Reports, ALineIsWrittenOnceHoweverItsWriterEnded) {
    const struct {
        const char* name;
        const char* left;   // what the file holds when the next one comes
        const char* wanted; // behind a repeat of the second line, and a third
    } cases[] = {{"whole", "one\ntwo\n", "one\ntwo\nthree\n"},
                 {"not begun", "one\n", "one\ntwo\nthree\n"},
                 {"torn", "one\ntw", "one\ntwo\nthree\n"},
                 {"torn, and another program wrote on", "one\ntwelve", "one\ntwelve\ntwo\nthree\n"},
                 {"shortened", "o", "o\nthree\n"}};
    for (const auto& one : cases) {
        for (const bool repeats : {true, false}) { // or the third comes first
            fs::remove_all(fs::path(settings.file).parent_path());
            fs::remove(journal());
            ASSERT_EQ(file("k1", "one"), delivery::done) << why;
            ASSERT_EQ(file("k2", "two"), delivery::done);
            forget_the_end();
            put(settings.file, one.left);
            if (repeats) {
                EXPECT_EQ(file("k2", "two"), delivery::done);
            }
            EXPECT_EQ(file("k3", "three"), delivery::done);
            EXPECT_EQ(content(settings.file), one.wanted) << one.name;
            EXPECT_EQ(file("k2", "two"), delivery::done);
            EXPECT_EQ(content(settings.file), one.wanted) << one.name;
        }
    }
}

TEST_F(Reports, AFileThatIsTakenAwayHasItsLines) {
    ASSERT_EQ(file("k1", "one"), delivery::done);
    forget_the_end();
    fs::rename(settings.file, settings.file + ".old");
    ASSERT_EQ(file("k2", "two"), delivery::done);
    put(settings.file, ""); // copied and shortened
    ASSERT_EQ(file("k3", "three"), delivery::done);
    EXPECT_EQ(content(settings.file), "three\n");
    forget_the_end();
    fs::remove_all(fs::path(settings.file).parent_path());
    ASSERT_EQ(file("k3", "three"), delivery::done) << why;
    ASSERT_EQ(file("k4", "four"), delivery::done) << why;
    EXPECT_EQ(file("k5", "five"), delivery::done);
    put(journal(), "no journal");
    put(settings.file, "");
    EXPECT_EQ(file("k6", "six"), delivery::done);
    EXPECT_EQ(content(settings.file), "six\n");
}

TEST_F(Reports, TheFileIsRotatedAndAHalfDoneRotationDropsNothing) {
    settings.file_max_size = 8;
    settings.file_copies = 3;
    for (const char* name : {"first", "second", "third", "fourth"})
        ASSERT_EQ(file(name, name), delivery::done);
    EXPECT_EQ(content(settings.file + ".3"), "first\n");
    fs::rename(settings.file + ".2", settings.file + ".3"); // as a kill leaves it
    fs::rename(settings.file + ".1", settings.file + ".2");
    ASSERT_EQ(file("fifth", "fifth"), delivery::done);
    EXPECT_EQ(content(settings.file + ".3") + content(settings.file + ".2") +
                  content(settings.file + ".1") + content(settings.file),
              "second\nthird\nfourth\nfifth\n");
    settings.file_copies = 0;
    ASSERT_EQ(file("sixth", "sixth"), delivery::done);
    EXPECT_EQ(content(settings.file), "sixth\n");
}

TEST_F(Reports, WhatIsNoPlainFileIsRefusedAndNotWaitedFor) {
    fs::create_directories(fs::path(settings.file).parent_path());
    fs::create_symlink("/dev/null", settings.file);
    EXPECT_EQ(file("k", "n"), delivery::failed);
    EXPECT_NE(why, "");
    settings.file = settings.db = "relative";
    EXPECT_EQ(file("k", "n"), delivery::failed);
    EXPECT_EQ(deliver_to_db(report("k", "n"), settings, why), delivery::failed);
    settings.file = settings.db = "";
    settings.notice = false;
    EXPECT_EQ(file("k", "n"), delivery::not_set_up);
    EXPECT_EQ(deliver_to_db(report("k", "n"), settings, why), delivery::not_set_up);
    EXPECT_EQ(deliver_to_notice(report("k", "n"), settings, why), delivery::not_set_up);
}

TEST_F(Reports, AJsonLineIsOneLineOfUtf8) {
    auto one = report("k", "a\nb\"\xff");
    const std::string line = kmhost::report_json(one);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(line)["name"], "a\nb\"\xEF\xBF\xBD");
    one.operation_type = kmhost::operation_number("undo");
    one.operation_mode = km::m_undoable | km::m_force;
    EXPECT_EQ(kmhost::report_text(one, "%operation_type% %operation_mode% %logger_name%"),
              "undo undoable force standard\n");
}

TEST_F(Reports, AKeyIsTheReportsOwnOrOneOfAllItsFields) {
    kmhost::report_protocols makers(nullptr);
    const std::unique_ptr<km::log_protocol> one(makers.make_standard_log_protocol());
    km::ustring key(u"abc-1");
    one->opt_params = &key;
    EXPECT_EQ(kmhost::key_of(*one, "MSA1"), "abc-1");
    for (const char* bad : {"", "../../x", "a b", "a/b"}) {
        key = km::ustring(bad);
        EXPECT_EQ(kmhost::key_of(*one, "MSA1").size(), 40U) << bad;
    }
    const std::string first = kmhost::key_of(*one, "MSA1");
    EXPECT_EQ(first, kmhost::key_of(*one, "MSA1"));
    EXPECT_NE(first, kmhost::key_of(*one, "MSA2"));
    one->name = km::ustring(u"n");
    EXPECT_NE(first, kmhost::key_of(*one, "MSA1"));
}

TEST_F(Reports, AChannelThatKeepsFailingIsLeftAlone) {
    settings.file = "relative";
    settings.db.clear();
    kmhost::delivery_watch watch(settings, 0);
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(watch.is_over());
        EXPECT_EQ(watch.deliver(0, report("k" + std::to_string(i), "n")), 0);
        EXPECT_EQ(watch.deliver(4, report("k" + std::to_string(i), "n")), 1);
    }
    EXPECT_EQ(watch.courses()[0].failed, 5);
    EXPECT_EQ(watch.courses()[4].done, 5);
}

} // namespace
