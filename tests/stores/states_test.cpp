// The record of a long operation: its own self-test, two processes, kills, damaged files.
#include "library_loader.h"
#include "base_configuration.h"
#include "states.h"
#include "ustring.h"

#include "support/child.h"
#include "support/scratch.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using km::states;
using km::ustring;

namespace {

// One directory for all tests of a process: the first question decides where records lie.
class States : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = std::make_unique<km_test::scratch_dir>();
        dir_->write("libs.znp", KM_BUILD_LIB "/libkmcore\n");
        ::setenv("SPEDITOR_LIB_PATH", dir_->path().c_str(), 1);
        ::setenv("HOME", dir_->path().c_str(), 1);
        km::set_configuration_location(km::pathname(dir_->path().c_str()));
        km::library_loader::discard();
        place_ = states::get_states_dir().mbcs_str();
    }
    static void TearDownTestSuite() {
        km::library_loader::discard();
        km::set_configuration_location(km::pathname());
        dir_.reset();
    }
    void SetUp() override { std::filesystem::remove_all(place_); }

    static std::string path(const std::string& name) { return place_ + "/" + name; }
    static std::string bytes(const std::string& name) {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void set_bytes(const std::string& name, const std::string& bytes) {
        states::get_states_dir();
        std::ofstream(path(name), std::ios::binary) << bytes;
    }
    static void do_steps(states& record, const std::vector<std::string>& steps) {
        for (const auto& step : steps)
            if (record.current_operation(step.c_str())) {
                EXPECT_EQ(record.commit(), 1) << step;
            }
    }
    // How many of the steps s0, s1, ... are recorded; -1 if one is behind one that is not.
    static int recorded(states& record, int steps) {
        int count = 0;
        for (int i = 0; i < steps; ++i)
            if (record.operation_exists(("s" + std::to_string(i)).c_str()) && count++ != i)
                return -1;
        return count;
    }
    static std::unique_ptr<km_test::scratch_dir> dir_;
    static std::string place_;
};
std::unique_ptr<km_test::scratch_dir> States::dir_;
std::string States::place_;

} // namespace

TEST_F(States, TheSelfTestPasses) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(states::test(), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "testing...\n... done\n");
    EXPECT_TRUE(std::filesystem::is_empty(place_));
    set_bytes("test", ""); // a file that a crashed self-test left
    testing::internal::CaptureStdout();
    EXPECT_EQ(states::test(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("testing...\n(1) errors have", 0), 0U);
}

TEST_F(States, StepsAndValuesOutliveTheProcess) {
    EXPECT_EQ(km_test::in_child([] {
                  states record("Op");
                  EXPECT_EQ(record.open(1, -1), states::success);
                  EXPECT_EQ(record.commit(), 1); // the empty name
                  record.current_operation("lost");
                  record.current_operation("kept");
                  EXPECT_EQ(record.commit(), 1);
                  record.current_operation("cut");
                  record.rollback();
                  EXPECT_TRUE(record.setenv(ustring("k"), "1") && record.setenv(ustring("k"), "2"));
              }),
              0);
    states record(km::pathname("Op"));
    ustring value;
    EXPECT_EQ(record.getenv(ustring("k"), value), 0); // not open
    EXPECT_EQ(record.commit(), 0);
    ASSERT_EQ(record.open(0, 0), states::success);
    const std::pair<const char*, int> cases[] = {{"", 1}, {"kept", 1}, {"lost", 0}, {"cut", 0}};
    for (const auto& [step, there] : cases)
        EXPECT_EQ(record.operation_exists(step), there) << step;
    EXPECT_EQ(record.current_operation("kept"), 0);
    EXPECT_EQ(record.getenv(ustring("k"), value), 1);
    EXPECT_STREQ(value.mbcs_str(), "2");
    EXPECT_EQ(record.getenv(ustring("other"), value), 0);
    EXPECT_EQ(record.close_and_remove(), 1);
    EXPECT_EQ(record.open(0, -1), states::no_file);
    EXPECT_TRUE(std::filesystem::is_empty(place_)); // no lock either
}

// Each takes the operation for one step at a time: none is lost, none is done twice.
TEST_F(States, TwoProcessesShareTheStepsOfOneFile) {
    constexpr int steps = 30;
    int done[2];
    ASSERT_EQ(::pipe(done), 0);
    const auto work = [&] {
        for (int i = 0; i < steps; ++i) {
            states record("shared");
            while (record.open(1, 0) != states::success)
                ::usleep(500);
            const std::string step = "s" + std::to_string(i);
            if (!record.current_operation(step.c_str()))
                continue;
            if (::write(done[1], "x", 1) != 1 || !record.commit())
                return 1;
        }
        return 0;
    };
    const pid_t other = ::fork();
    if (other == 0)
        ::_exit(work());
    EXPECT_EQ(work(), 0);
    int status = 0;
    ::waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    char marks[4 * steps];
    EXPECT_EQ(::read(done[0], marks, sizeof marks), steps);
    ::close(done[0]);
    ::close(done[1]);
}

// A file cut at any byte keeps the steps whose slots are whole; one that lies records nothing, and
// says so, and stays as it is.
TEST_F(States, DamagedFiles) {
    constexpr int steps = 4;
    {
        states record("whole");
        ASSERT_EQ(record.open(1, -1), states::success);
        do_steps(record, {"s0", "s1", "s2", "s3"});
    }
    const std::string whole = bytes("whole");
    const size_t slot = (whole.size() - 9) / steps;
    for (size_t size = 0; size <= whole.size(); ++size) {
        const std::string part = whole.substr(0, size);
        set_bytes("cut", part);
        states record("cut");
        ASSERT_EQ(record.open(0, -1), states::success);
        const int kept = size < 9 ? 0 : static_cast<int>((size - 9) / slot);
        EXPECT_EQ(recorded(record, steps), kept) << size;
        if (record.get_table_error()) {
            EXPECT_FALSE(size == 0 || (size >= 9 && (size - 9) % slot == 0)) << size;
            EXPECT_EQ(bytes("cut"), part) << size;
        } else {
            do_steps(record, {"s0", "s1", "s2", "s3"});
            EXPECT_EQ(recorded(record, steps), steps) << size;
        }
    }
    std::string wrong_class = whole;
    wrong_class.replace(wrong_class.find("ustring"), 7, "UString");
    for (const std::string& bad :
         {std::string("no table at all"), wrong_class,
          "PHT\xAA\xAA" + std::string(4, 0) + "\xCC\xCC" + std::string(64, '\x7f')}) {
        set_bytes("bad", bad);
        states record("bad");
        ASSERT_EQ(record.open(1, -1), states::success);
        EXPECT_NE(record.get_table_error(), 0);
        EXPECT_EQ(record.current_operation("s0"), 1);
        EXPECT_EQ(record.commit(), 0);
        EXPECT_EQ(record.setenv(ustring("a"), "b"), 0);
        EXPECT_EQ(record.close(), 1);
        EXPECT_EQ(bytes("bad"), bad);
    }
}
