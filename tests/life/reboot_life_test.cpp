// Results that ask for a reboot: what is asked of the host, what waits, and what goes on behind it.
#include "life_fixture.h"

using namespace km_test;

namespace {

std::string asked; // of the host: p prepare, u unprepare, r request, c cancel

struct row {
    const char* before; // steps
    const char* op;
    const char* mode;
    const char* fails; // the call that asks for the reboot
    int result;
    const char* asked;
    const char* waits; // letters while it waits
    const char* ends;  // letters and tree in the end
    int runs;          // how often the call ran, both times together
};

class RebootLife : public LifeTest, public testing::WithParamInterface<row> {
  protected:
    void SetUp() override {
        LifeTest::SetUp();
        asked.clear();
        km::engine_hooks hooks;
        hooks.make_durable = [] { return km::flush_touched(); };
        hooks.prepare_restart = [](km::cm_package*, int) { return asked += 'p', 1; };
        hooks.unprepare_restart = [](km::cm_package*) { return asked += 'u', 1; };
        hooks.request_restart = [](km::cm_package*, int) { asked += 'r'; };
        hooks.cancel_restart = [](km::cm_package*) { asked += 'c'; };
        km::set_engine_hooks(hooks);
    }
    void TearDown() override {
        km::set_engine_hooks({});
        LifeTest::TearDown();
    }
    // As a host does it behind a reboot: from the profile, without the gate.
    int go_on(const std::string& op) {
        km::forget_made_directories();
        km::forget_room();
        km::forget_directories();
        stores all(dir_.at("store"));
        const auto package = from_profile(all);
        if (!package || !all.entry())
            return -99;
        const int mode = static_cast<int>(all.entry()->entry_mode | km::m_during_reboot);
        std::unique_ptr<km::unzipping_channel> data;
        if (op == "install")
            package->input_channel = (data = open_data(package->current_offset)).get();
        const int result =
            op == "undo" ? package->undo(km::m_during_reboot, 7)
            : op == "commit"
                ? package->commit(km::m_during_reboot, 7)
                : package->execute(op == "remove" ? km::a_reverse : km::a_execute, mode, 7);
        told_ = text_of(all.messages);
        return result;
    }
};

class RebootCommit : public RebootLife {};

void PrintTo(const row& one, std::ostream* to) {
    *to << one.before << "; " << one.op << " " << one.mode << ", " << one.fails << "="
        << one.result;
}

} // namespace

TEST_P(RebootLife, GoesOnBehindIt) {
    const row& one = GetParam();
    play(one.before);
    std::istringstream fails(std::string(one.fails) + "=" + std::to_string(one.result));
    side_step("fail", fails);
    recorder::calls.clear();
    EXPECT_EQ(run(one.op, mode_of(one.mode)), one.result) << told_;
    EXPECT_EQ(asked, one.asked);
    EXPECT_EQ(letters(), one.waits);
    {
        stores all(dir_.at("store"));
        ASSERT_TRUE(all.entry());
        EXPECT_EQ(all.entry()->current_result, one.result);
    }
    recorder::results.clear();
    EXPECT_EQ(go_on(one.op), 0) << told_;
    EXPECT_EQ(std::count(recorder::calls.begin(), recorder::calls.end(), one.fails), one.runs);
    std::istringstream ends(one.ends);
    std::string should, tree;
    ends >> should >> tree;
    expect_whole(should, tree);
}

// In the pass behind the reboot; one that begins anew would forget it.
TEST_P(RebootCommit, AsksAgainWhatIsNotFinished) {
    const int code = GetParam().result;
    play("install t = 0 IP--- before; fail do 1 3 trap=" + std::to_string(code));
    EXPECT_EQ(run("commit", 0), code) << told_;
    recorder::results.clear();
    recorder::calls.clear();
    EXPECT_EQ(go_on("commit"), 0) << told_;
    EXPECT_EQ(std::count(recorder::calls.begin(), recorder::calls.end(), "do 1 5 trap"), 1);
    expect_whole("IC---", "new");
    // Later operations go by what the profile tells.
    recorder::calls.clear();
    EXPECT_EQ(run("remove", 0), 0) << told_;
    EXPECT_EQ(std::count(recorder::calls.begin(), recorder::calls.end(), "do 2 1 trap"), 1);
}

INSTANTIATE_TEST_SUITE_P(NotFinished, RebootCommit,
                         testing::Values(row{"", "commit", "", "do 1 3 trap", 2, "", "", "", 0},
                                         row{"", "commit", "", "do 1 3 trap", 4, "", "", "", 0}));

INSTANTIATE_TEST_SUITE_P(
    Results, RebootLife,
    testing::Values(row{"", "install", "", "do 1 1 trap", 1, "pr", "I--BC", "IC--- new", 1},
                    row{"", "install", "", "do 1 1 trap", 2, "pr", "I--BC", "IC--- new", 2},
                    row{"", "install", "", "do 1 1 trap", 3, "pr", "I--BC", "IC--- new", 1},
                    row{"", "install", "", "do 1 1 trap", 4, "pr", "I--BC", "IC--- new", 2},
                    row{"", "install", "", "do 1 1 trap", 5, "p", "IC-BC", "IC--- new", 1},
                    row{"install t = 0 IP--- before", "commit", "", "do 1 3 trap", 5, "p", "IP-BC",
                        "IC--- new", 2},
                    row{"", "install", "u", "do 1 1 trap", 1, "pr", "I--BC", "ICU-- new", 1},
                    row{"", "install", "t", "do 1 2 trap", 1, "pr", "I--BC", "IP--- before", 1},
                    row{"install t = 0 IP--- before", "commit", "", "do 1 3 trap", 1, "pr", "IP-BC",
                        "IC--- new", 1},
                    row{"install = 0 IC--- new", "remove", "", "do 2 1 trap", 1, "pr", "RC-BC",
                        "none removed", 1},
                    row{"install u = 0 ICU-- new", "undo", "", "do 1 1 untrap", 1, "pr", "I--BC",
                        "none before", 1}));
