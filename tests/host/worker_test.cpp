// Outcomes and the worker process.
#include "engine_exit.h"
#include "outcome.h"
#include "stop_request.h"
#include "worker.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

using kmhost::outcome;

TEST(Worker, HandsOverItsOutcomeAndProgress) {
    std::vector<long> seen;
    auto watch = [&](const kmhost::progress_report& report) { seen.push_back(report.done); };
    const outcome result = kmhost::run_worker(
        [](kmhost::worker_line& line, outcome& out) {
            for (long i = 0; i <= 1000; ++i)
                line.progress({i, 1000, "file \xFF"});
            out.warn("w", "bytes \xFF and \"quotes\"\nand lines");
            out.package = kmhost::package_facts{"p", "1", "IC---", "success"};
            out.text = std::string(300000, 'x');
        },
        watch);
    EXPECT_EQ(result.exit, kmhost::exit_done);
    EXPECT_EQ(result.text.size(), 300000u);
    ASSERT_TRUE(result.package);
    EXPECT_EQ(result.package->state, "IC---");
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), 1000);
    EXPECT_LT(seen.size(), 100u);
}

TEST(Worker, AnyEarlyEndIsPendingAndNeverASuccess) {
    static kmhost::worker_line* own_line;
    const struct {
        const char* name;
        void (*end)();
        int signal;
    } cases[] = {{"killed", [] { ::raise(SIGKILL); }, SIGKILL},
                 {"exit 0", [] { km::engine_exit(0, "network error"); }, 0},
                 {"abort", [] { ::signal(SIGABRT, SIG_DFL), std::abort(); }, SIGABRT}};
    for (const auto& one : cases) {
        kmhost::worker_end end;
        const outcome result = kmhost::run_worker(
            [&](kmhost::worker_line& line, outcome&) {
                own_line = &line;
                km::set_exit_watcher(
                    [](int status, const char* why) { own_line->ending(status, why); });
                one.end();
            },
            {}, &end);
        EXPECT_EQ(result.exit, kmhost::exit_busy) << one.name;
        EXPECT_EQ(result.word, "pending");
        EXPECT_TRUE(end.ended_early);
        EXPECT_EQ(end.signal, one.signal) << one.name;
        if (!one.signal) {
            EXPECT_EQ(end.why, "network error");
        }
    }
}

TEST(Worker, TakesRequestsToEndForTheWholeProcess) {
    const auto told_to_stop = [] {
        return kmhost::run_worker(
            [](kmhost::worker_line&, outcome& out) {
                for (int i = 0; i < 5000 && !km::stop_requested(); ++i)
                    ::usleep(1000);
                out.text = km::stop_requested() ? "stopped" : "";
            },
            {});
    };
    kmhost::hold_ends();
    for (const int signal : {SIGINT, SIGTERM}) {
        ::raise(signal);
        EXPECT_EQ(told_to_stop().text, "stopped") << signal;
    }
    sigset_t ends, held;
    ::raise(SIGTERM); // behind the worker: what it told is shown first
    ::sigpending(&held);
    EXPECT_EQ(::sigismember(&held, SIGTERM), 1);
    EXPECT_EQ(::sigismember(&held, SIGINT), 0);
    ::sigemptyset(&ends);
    ::sigaddset(&ends, SIGTERM);
    int got = 0;
    ::sigwait(&ends, &got);
    ::sigaddset(&ends, SIGINT);
    ::sigprocmask(SIG_UNBLOCK, &ends, nullptr);
}

TEST(Outcome, TheFirstFailureDecidesAndJsonIsOneObject) {
    outcome result;
    result.fail(kmhost::exit_refused, "state", "first", "refused");
    result.fail(kmhost::exit_failed, "later", "second \xFF");
    EXPECT_EQ(result.exit, kmhost::exit_refused);
    const auto object = nlohmann::json::parse(kmhost::to_json_text(result, "install"));
    EXPECT_EQ(object["schema"], 1);
    EXPECT_EQ(object["command"], "install");
    EXPECT_EQ(object["outcome"], "refused");
    EXPECT_EQ(object["exit_code"], 5);
    EXPECT_EQ(object["messages"].size(), 2u);
    EXPECT_FALSE(object.contains("package"));
    outcome back;
    EXPECT_FALSE(kmhost::from_wire("{\"cut\":", back));
}
