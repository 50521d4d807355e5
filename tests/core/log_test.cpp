// The log file: lines, limits, rolling over among writers, troubles.
#include "base/log.h"
#include "base/spcatalog.h"

#include "support/has.h"
#include "support/scratch.h"

#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string heard;

class Log : public testing::Test {
  protected:
    void SetUp() override {
        heard.clear();
        km::LogSetTroubleWatcher([](const char* text) { heard += text; });
    }
    void TearDown() override {
        km::LogDeinit(handle_);
        km::LogSetTroubleWatcher(nullptr);
        km::LogQueueAlloc(km::log_ring_size);
    }
    void open(long max_size = 100) {
        handle_ = km::LogInit(dir_.at("a.b.log").c_str(), "app", 3, 0, max_size);
        ASSERT_NE(handle_, nullptr);
        km::LogSetDefault(handle_);
    }
    void put(const char* line) { km::LogMsg(1, handle_, nullptr, km::log_text_alone, line); }
    std::string text() const { return dir_.read("a.b.log"); }
    void fill() { dir_.write("a.b.log", std::string(10241, 'x')); }
    km_test::scratch_dir dir_;
    km::LogAllocStruct* handle_ = nullptr;
};

std::string without_time(const std::string& text) {
    return std::regex_replace(text, std::regex("[A-Z][a-z]{2} [0-9]{2} [0-9:]{8}"), "TIME");
}

int lines_of(const std::string& text, const std::string& part) {
    int count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at)
        ++count;
    return count;
}

} // namespace

TEST_F(Log, LinesOfEveryKind) {
    open();
    km::LogMsg(3, handle_, km::spcatalog[0], 25, km::spcatalog[25], "/x", "13");
    km::LogMsg(4, handle_, nullptr, 0, "too chatty");
    km::LogMsg(1, nullptr, nullptr, km::log_text_alone, "100%s");
    km::LogQ("%s of %d", "one", 3);
    km::LogSetAppName(handle_, nullptr);
    km::LogMsg(0, handle_, nullptr, 0, "%1$s.", "bare");
    put("");
    EXPECT_EQ(without_time(text()),
              "TIME 3 app ZNPSE0025E Unable to create the path /x. Error number: 13.\n\n"
              "100%s\nTIME   app one of 3\nTIME 0 bare.\n\n");
    EXPECT_EQ(km::LogGetFD(handle_), -1);
}

TEST_F(Log, ADumpShowsEveryByte) {
    open();
    km::LogData(2, handle_, "bytes", "0123456789abcdef\x7f\n~", 19);
    EXPECT_EQ(without_time(text()),
              "TIME   app bytes\n-START DATA-: 19  (0x13) bytes-\n"
              "00000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n"
              "00000010: 7f 0a 7e" +
                  std::string(40, ' ') + "..~\n");
}

TEST_F(Log, ALongTextIsCutInWholeCharacters) {
    open();
    std::string text = "x";
    while (text.size() < 5000)
        text += "\xc3\xa4";
    km::LogMsg(1, handle_, nullptr, 0, "%1$s", text.c_str());
    EXPECT_EQ(this->text().substr(this->text().find("app ") + 4), text.substr(0, 1023) + "\n");
}

TEST_F(Log, LimitsAreMovedToTheNearest) {
    const long cases[][2] = {{100, 10240}, {20000, 20000}, {99999999, 10240000}, {-1, 10240}};
    for (const auto& one : cases) {
        open(one[0]);
        EXPECT_EQ(handle_->max_size, one[1]);
        km::LogDeinit(handle_);
    }
    handle_ = nullptr;
}

TEST_F(Log, TheOldLogIsTheBackup) {
    open();
    fill();
    put("new");
    EXPECT_EQ(dir_.read("a.b.bk"), std::string(10241, 'x'));
    EXPECT_EQ(text(), "-- Log size has reached limit (10240) - The existing log file has been "
                      "backed up as " +
                          dir_.at("a.b.bk") + " --\n\nnew\n");
}

TEST_F(Log, ABackupThatCannotBeMadeEmptiesTheLog) {
    open();
    fill();
    dir_.write("a.b.bk/in/the/way", "");
    put("new");
    EXPECT_TRUE(std::regex_match(text(), std::regex("\n-- Failed to create backup. errno=[0-9]+ "
                                                    "Exception: Rename failed --\n\nnew\n")))
        << text();
}

// Writers that look at the size at once must not take a fresh log for the full one.
TEST_F(Log, NoLineIsLostAmongWritersAtTheLimit) {
    open(10240);
    constexpr int writers = 4, lines = 120; // together below twice the limit
    for (int w = 0; w < writers; ++w)
        if (::fork() == 0) {
            for (int i = 0; i < lines; ++i)
                put("<a line of thirty bytes here>");
            ::_exit(heard.empty() ? 0 : 1);
        }
    for (int w = 0, status = 0; w < writers; ++w) {
        ::wait(&status);
        EXPECT_EQ(status, 0);
    }
    const std::string all = text() + dir_.read("a.b.bk");
    EXPECT_EQ(lines_of(all, "<a line of thirty bytes here>\n"), writers * lines);
    EXPECT_EQ(lines_of(all, "backed up"), 1);
}

// The limit of a file's size takes the part of a line that a full disk takes.
TEST_F(Log, ALineIsNotPutBehindATornOne) {
    open();
    put("first");
    rlimit all{};
    ::getrlimit(RLIMIT_FSIZE, &all);
    const rlimit some{10, all.rlim_max};
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &some);
    put("second");
    ::setrlimit(RLIMIT_FSIZE, &all);
    std::signal(SIGXFSZ, before);
    put("third");
    EXPECT_EQ(text(), "first\nseco\nthird\n");
    km::LogDeinit(handle_);
    dir_.write("a.b.log", "cut");
    open();
    put("a new process");
    put("on");
    EXPECT_EQ(text(), "cut\na new process\non\n");
}

TEST_F(Log, FiveFailuresInARowEndTheFile) {
    open();
    const auto move = [&](const char* from, const char* to) {
        ASSERT_EQ(::rename(dir_.at(from).c_str(), dir_.at(to).c_str()), 0);
    };
    put("first");
    move("a.b.log", "kept");
    dir_.write("a.b.log/x", "");
    for (int i = 0; i < 4; ++i)
        put("lost");
    EXPECT_EQ(lines_of(heard, "EX: LogMsg: "), 4);
    move("a.b.log", "away");
    move("kept", "a.b.log");
    put("a good one resets the count");
    move("a.b.log", "kept");
    move("away", "a.b.log");
    for (int i = 0; i < 6; ++i)
        put("lost");
    EXPECT_EQ(lines_of(heard, "EX: LogMsg: "), 8);
    EXPECT_HAS(heard, "LogQ Trace:\nfirst\na good one resets the count\n\n"
                      "Log error limit exceeded.   Shutdown Logfile\n");
    EXPECT_EQ(handle_->file_output, 0);
}

TEST_F(Log, TheRingHoldsTheLastBytes) {
    open();
    EXPECT_EQ(km::LogQueueAlloc(-1), 0);
    ASSERT_EQ(km::LogQueueAlloc(16), 1);
    const char* const cases[][2] = {{"12345\n", "12345\n"},
                                    {"6789012\n", "12345\n6789012\n"},
                                    {"abcd\n", "6789012\nabcd\n"},
                                    {"0123456789012345678\n", "012345678901234\n"}};
    for (const auto& one : cases) {
        km::LogQueueWrite(handle_, one[0]);
        EXPECT_STREQ(km::LogQGetBuffer(), one[1]);
    }
    km::LogQueueAlloc(0);
    km::LogQueueWrite(handle_, "x\n");
    EXPECT_STREQ(km::LogQGetBuffer(), "");
}

TEST_F(Log, WithoutAFileTheBackupNameOrAPipeServes) {
    EXPECT_EQ(km::LogInit(nullptr, "app", 1, 0, 0), nullptr);
    EXPECT_EQ(km::LogInit("x", nullptr, 1, 0, 0), nullptr);
    EXPECT_EQ(heard, "No filespec given. Unable to init log.\n"
                     "No application name (appName) given. Unable to init log.\n");
    dir_.write("a.b.log/x", "");
    handle_ = km::LogInitAppend(dir_.at("a.b.log").c_str(), "app", 3, 0);
    put("there");
    EXPECT_EQ(dir_.read("a.b.bk"), "there\n");
    km::LogDeinit(handle_);

    const std::string nowhere = dir_.at("no/such/dir/x.log");
    ::unsetenv("LOG_PIPE_WRITE");
    EXPECT_EQ(km::LogInitAppend(nowhere.c_str(), "app", 3, 0), nullptr);
    EXPECT_HAS(heard, "EX: LogInit: " + nowhere);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::setenv("LOG_PIPE_WRITE", std::to_string(ends[1]).c_str(), 1);
    handle_ = km::LogInitAppend(nowhere.c_str(), "app", 3, 0);
    ASSERT_NE(handle_, nullptr);
    put("piped");
    char bytes[16] = "";
    EXPECT_EQ(::read(ends[0], bytes, sizeof bytes), 6);
    EXPECT_STREQ(bytes, "piped\n");
    ::close(ends[0]);
    put("to nobody"); // no SIGPIPE
    EXPECT_EQ(lines_of(heard, "EX: LogMsg: "), 1);
    ::close(ends[1]);
    ::unsetenv("LOG_PIPE_WRITE");
}

TEST_F(Log, PostsAreAppended) {
    ::unsetenv("QEP_DATDIR");
    EXPECT_EQ(km::web_post_append_log("x"), 0);
    ::setenv("QEP_DATDIR", dir_.path().c_str(), 1);
    EXPECT_EQ(km::web_post_append_log("one\n") + km::web_post_append_log("two\n"), 2);
    EXPECT_EQ(dir_.read("webpost.dat"), "one\ntwo\n");
    ::unsetenv("QEP_DATDIR");
}
