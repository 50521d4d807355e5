// Programs of a package: their words, their runs, and their part in every operation.
#include "program_command.h"

#include "program_notes.h"
#include "program_run.h"

#include "concrete/odd_fixture.h"

#include "support/has.h"

#include <ctime>

using namespace km_test;
using km::program_command;
using km::program_outcome;

TEST(ExitCodes, RangesGiveResults) {
    const struct {
        const char* text;
        std::map<int, int> results; // empty: no table
    } cases[] = {
        {"", {{0, 0}, {1, 9}, {75, 8}, {255, 9}}},
        {" 0:success, 1-9:failure,75:temporary,100 : restart ",
         {{0, 0}, {9, 9}, {75, 8}, {100, 3}, {10, 9}}},
        {"0:failure,1:success", {{0, 9}, {1, 0}, {75, 8}}},
        {"1-3:warning,2:failure", {{2, 7}, {4, 9}}},
        {"1:restart_now,2:restart_now_again,3:restart,4:restart_again,5:in_restart,6:retry",
         {{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}}},
        {"0", {}},
        {"1:", {}},
        {"1:later", {}},
        {"256:failure", {}},
        {"-1:failure", {}},
        {"9-1:failure", {}},
        {"1-:failure", {}},
        {"1:failure,", {}},
        {"99999999999999999999:failure", {}},
    };
    for (const auto& one : cases) {
        km::program_exit_codes table;
        std::string fault;
        EXPECT_EQ(table.read(one.text, fault), !one.results.empty()) << one.text;
        EXPECT_EQ(fault.empty(), !one.results.empty()) << one.text;
        for (const auto& [code, result] : one.results)
            EXPECT_EQ(table.result_of(code), result) << one.text << " " << code;
    }
}

TEST(Words, AreSplitAsAShellQuotes) {
    const struct {
        const char* text;
        const char* words; // apart by '|', "!" for a quote that is open
    } cases[] = {{"", ""},
                 {"  a  bc\t d\n", "a|bc|d"},
                 {"'a b' \"c d\"", "a b|c d"},
                 {"a'b'\"c\"d", "abcd"},
                 {"'' x", "|x"},
                 {"\"a\\\"b\\\\c\\d\" '\\'", "a\"b\\c\\d|\\"},
                 {"a\\ b $HOME `x` * ;", "a b|$HOME|`x`|*|;"},
                 {"'a", "!"},
                 {"\"a\\\"", "!"},
                 {"a\\", "!"}};
    for (const auto& one : cases) {
        std::vector<std::string> words;
        std::string all;
        if (!km::split_words(one.text, words))
            all = "!";
        else
            for (const auto& word : words)
                all += (&word == words.data() ? "" : "|") + word;
        EXPECT_EQ(all, one.words) << one.text;
    }
}

namespace {
program_outcome shell(const std::string& script, long limit = -1) {
    km::program_request request;
    request.path = "/bin/sh";
    request.arguments = {"-c", script};
    request.environment = {"PATH=/usr/bin:/bin", "A=b"};
    request.time_limit = limit;
    return km::run_program(request);
}
} // namespace

TEST(ProgramRun, TellsHowItEnded) {
    const auto good = shell("echo out; echo err >&2; echo $A; pwd; cat; exit 3");
    EXPECT_EQ(good.how, program_outcome::end::exited);
    EXPECT_EQ(good.code, 3);
    EXPECT_EQ(good.output, "out\nerr\nb\n/\n");
    const auto killed = shell("kill -SEGV $$");
    EXPECT_EQ(killed.how, program_outcome::end::killed);
    EXPECT_EQ(killed.code, SIGSEGV);
    km::program_request none;
    none.path = "/no/such/program";
    EXPECT_EQ(km::run_program(none).code, ENOENT);
    none.path = "/bin/sh";
    none.working_directory = "/no/such/directory";
    const auto nowhere = km::run_program(none);
    EXPECT_EQ(nowhere.how, program_outcome::end::not_started);
    EXPECT_HAS(nowhere.step, "working directory");
}

TEST(ProgramRun, KeepsTheEndOfALongOutput) {
    const auto all = shell("head -c 300000 /dev/zero | tr '\\0' x; echo; echo the end");
    EXPECT_EQ(all.output.size(), 65536u);
    EXPECT_EQ(all.lost, 300009u - 65536u);
    EXPECT_EQ(all.output.substr(all.output.size() - 9), "\nthe end\n");
}

TEST(ProgramRun, EndsAtItsLimitWithWhatItStarted) {
    const std::time_t begun = std::time(nullptr);
    const auto late = shell("sleep 77 & echo $!; wait", 1);
    EXPECT_EQ(late.how, program_outcome::end::timed_out);
    EXPECT_LT(std::time(nullptr) - begun, 5);
    const pid_t below = std::atoi(late.output.c_str());
    ASSERT_GT(below, 1);
    for (int i = 0; i < 100 && ::kill(below, 0) == 0; ++i)
        ::usleep(10000);
    std::ifstream state("/proc/" + std::to_string(below) + "/stat");
    std::string text;
    std::getline(state, text);
    EXPECT_TRUE(text.empty() || has(text, ") Z ")) << text;
    // What it leaves in the background holds its output open, and is not waited for.
    const auto daemon = shell("sleep 20 & echo up");
    EXPECT_EQ(daemon.how, program_outcome::end::exited);
    EXPECT_EQ(daemon.output, "up\n");
    EXPECT_LT(std::time(nullptr) - begun, 10);
}

namespace {

class ProgramLife : public OddTest {
  protected:
    // A program whose every run writes a line to "runs", and ends with `code`.
    program_command* make(const std::string& code = "0") {
        auto* made = new program_command;
        for (size_t i = 0; i < made->programs.size(); ++i) {
            static const char* const names[] = {"I", "R", "U", "C", "V"};
            made->programs[i].path = u"/bin/sh";
            made->programs[i].arguments =
                u(std::string("-c 'echo ") + names[i] +
                  " $KM_OPERATION $KM_PHASE $KM_ACTION $KM_RERUN $KM_PACKAGE $MORE >>\"" +
                  dir_.at("runs") + "\"; echo said; exit " + code + "'");
        }
        made->environment = u"'MORE=two words'";
        return made;
    }
    // The runs since the last call.
    std::string runs() {
        std::string text = dir_.read("runs");
        fs::remove(dir_.at("runs"));
        return text;
    }
};

} // namespace

TEST_F(ProgramLife, ExitCodesDecide) {
    const struct {
        const char* codes;
        const char* code;
        int result;
        const char* letters;
    } cases[] = {{"", "1", 9, "IC--E"},
                 {"", "75", 9, "IC--E"},
                 {"4:success", "4", 0, "IC---"},
                 {"4:warning", "4", 7, "IC---"},
                 {"4:restart", "4", 3, nullptr},
                 {"4:restart_now", "4", 1, nullptr},
                 {"4:in_restart", "4", 5, nullptr}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.codes);
        auto* program = make(one.code);
        program->exit_codes = u(one.codes);
        pack({program});
        EXPECT_EQ(go("install"), one.result) << told_;
        if (one.letters) {
            EXPECT_EQ(letters(), one.letters);
        }
        EXPECT_EQ(has(told_, "ended with code"), one.result == 9) << told_;
        fresh_stores();
    }
}

// What did not run is not undone; what ran is.
TEST_F(ProgramLife, AFailureUndoesWhatRan) {
    pack({make(), new trap("trap"), make("0")});
    recorder::results["do 1 1 trap"] = 9;
    EXPECT_EQ(go("install", km::m_undoable), 9);
    EXPECT_EQ(letters(), "none");
    const std::string all = runs();
    EXPECT_EQ(all, "I install commit install 0 pkg^1 two words\n"
                   "U undo commit install 0 pkg^1 two words\n");
}

TEST_F(ProgramLife, ARunBehindAKillIsTold) {
    auto* program = make();
    program->programs[program_command::of_install].arguments =
        u("-c 'echo $KM_RERUN >>\"" + dir_.at("runs") + "\"; test $KM_RERUN = 1 || kill -9 $PPID'");
    pack({program});
    ASSERT_TRUE(WIFSIGNALED(in_child([this] { go("install"); })));
    EXPECT_EQ(go("install"), 0) << told_;
    EXPECT_EQ(runs(), "0\n1\n");
}

TEST_F(ProgramLife, WhatCannotRunIsRefusedBeforeAnything) {
    dir_.write("plain", "no program");
    const struct {
        const char* what;
        std::function<void(program_command&)> spoil;
        const char* told;
    } cases[] = {{"path", [](auto& one) { one.programs[0].path = u"/no/such"; }, "No such file"},
                 {"relative", [](auto& one) { one.programs[0].path = u"bin/sh"; }, "not absolute"},
                 {"mode", [this](auto& one) { one.programs[0].path = u(dir_.at("plain")); },
                  "not executable"},
                 {"directory", [](auto& one) { one.programs[0].path = u"/tmp"; }, "neither a file"},
                 {"quotes", [](auto& one) { one.programs[0].arguments = u"'open"; }, "not closed"},
                 {"environment", [](auto& one) { one.environment = u"A=b word"; }, "no NAME=VALUE"},
                 {"user", [](auto& one) { one.user = u"no such user"; }, "not known"},
                 {"codes", [](auto& one) { one.exit_codes = u"1:later"; }, "'later' is none of"}};
    for (const auto& one : cases) {
        auto* program = make();
        one.spoil(*program);
        pack({new trap("trap"), program});
        EXPECT_EQ(go("install"), 9) << one.what;
        EXPECT_EQ(letters(), "none") << one.what;
        EXPECT_HAS(told_, one.told) << one.what << told_;
        EXPECT_EQ(runs(), "");
        recorder::calls.clear();
    }
    // One that the package brings need not be there yet.
    auto* brought = new km::km_file;
    brought->set_path(u(dir_.at("target/tool")));
    dir_.write("source/tool", "#!/bin/sh\necho ran >" + dir_.at("runs") + "\n");
    ::chmod(dir_.at("source/tool").c_str(), 0755);
    brought->set_source(dir_.at("source/tool"));
    auto* program = new program_command;
    program->programs[0].path = u(dir_.at("target/tool"));
    pack({km::new_add_file(brought), program});
    EXPECT_EQ(go("install"), 0) << told_;
    EXPECT_EQ(runs(), "ran\n");
}

TEST_F(ProgramLife, RunsAsItsUser) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs privilege";
    auto* program = make();
    program->user = u"nobody";
    program->programs[0].arguments = u"-c 'echo $(id -u) $(id -G) $USER $HOME'";
    pack({program});
    EXPECT_EQ(go("install"), 0) << told_;
    const auto* nobody = ::getpwnam("nobody");
    const std::string number = std::to_string(nobody->pw_uid);
    EXPECT_HAS(dir_.read("log/pkg^1.log"), "[output]\t" + number + " " +
                                               std::to_string(nobody->pw_gid) + " nobody " +
                                               nobody->pw_dir);
    // Without privilege neither another user nor another root can be taken on.
    ASSERT_EQ(::seteuid(nobody->pw_uid), 0);
    for (const char* root : {"", "/tmp"}) {
        km::cm_package package;
        km::spmessage messages;
        package.messages = &messages;
        program_command other;
        other.package = &package;
        other.programs[0].path = u"/bin/sh";
        other.user = *root ? u"" : u"root";
        km::set_target_root(root);
        other.can_execute(km::a_execute, km::p_do);
        EXPECT_EQ(other.result, 9);
        EXPECT_HAS(text_of(messages), "only a privileged user");
    }
    km::set_target_root(nullptr);
    ASSERT_EQ(::seteuid(0), 0);
}

TEST(ProgramCommand, TimeLimitsAddUp) {
    program_command one;
    const int limits[] = {10, 20, 40, 80, 160};
    for (size_t i = 0; i < one.programs.size(); ++i) {
        one.programs[i].path = u"/bin/true";
        one.programs[i].timeout = limits[i];
    }
    int count = 0;
    EXPECT_EQ(one.get_timeout(&count, km::a_execute, false, false), 90);
    EXPECT_EQ(one.get_timeout(&count, km::a_execute, true, false), 130);
    EXPECT_EQ(one.get_timeout(&count, km::a_reverse, false, false), 20);
    EXPECT_EQ(one.get_timeout(nullptr, km::a_verify_execute, false, false), 160);
    EXPECT_EQ(count, 3);
    one.programs[program_command::of_undo].timeout = -1;
    EXPECT_EQ(one.get_timeout(nullptr, km::a_execute, true, false), -1);
    one.programs[program_command::of_undo].path = u"";
    EXPECT_EQ(one.get_timeout(nullptr, km::a_execute, true, false), 90);
}
