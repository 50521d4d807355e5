// The life of an installed package: every way in, on and out, on a real tree.
#include "life_fixture.h"

using namespace km_test;

namespace {
class InstallLife : public LifeTest, public testing::WithParamInterface<const char*> {};
} // namespace

TEST_P(InstallLife, EndsAsTold) { play(GetParam()); }

// Modes: u undoable, p preferably undoable, t transactional, w undo at commit, c auto-commit, a
// auto-accept, f force, r repair, s source.
INSTANTIATE_TEST_SUITE_P(
    Ways, InstallLife,
    testing::Values(
        // At once.
        "install = 0 IC--- new; remove = 0 none removed", "install c = 0 IC--- new",
        "install a = 0 IC--- new",
        "install u = 0 ICU-- new; undo = 0 none before; install u = 0 ICU-- new",
        "install u = 0 ICU-- new; accept = 0 IC--- new; remove = 0 none removed",
        "install p = 0 ICU-- new; undo = 0 none before",
        "install w = 0 ICU-- new; undo = 0 none before",
        "install ua = 0 IC--- new; remove = 0 none removed", "install pa = 0 IC--- new",
        // Prepared.
        "install t = 0 IP--- before; commit = 0 IC--- new; remove = 0 none removed",
        "install t = 0 IP--- before; rollback = 0 none before",
        "install t = 0 IP--- before; rollback t = -1 IP--- before; remove = -1 IP--- before",
        "install tu = 0 IPU-- before; commit = 0 ICU-- new; undo = 0 none before",
        "install tu = 0 IPU-- before; accept = 0 IP--- before; commit = 0 IC--- new",
        "install tu = 0 IPU-- before; rollback = 0 none before",
        "install tp = 0 IPU-- before; commit = 0 ICU-- new; accept = 0 IC--- new",
        "install tw = 0 IPP-- before; commit = 0 ICU-- new; undo = 0 none before",
        "install tw = 0 IPP-- before; accept = 0 IP--- before; commit = 0 IC--- new",
        "install tw = 0 IPP-- before; rollback = 0 none before",
        "install twa = 0 IP--- before; commit = 0 IC--- new", "install tua = 0 IP--- before",
        // The whole chain in one call.
        "install tc = 0 IC--- new; remove = 0 none removed",
        "install tcu = 0 ICU-- new; undo = 0 none before",
        "install tcp = 0 ICU-- new; accept = 0 IC--- new",
        "install tcw = 0 ICU-- new; undo = 0 none before",
        "install tcua = 0 IC--- new; remove = 0 none removed", "install tcwa = 0 IC--- new",
        // An undo that stops prepared.
        "install u = 0 ICU-- new; undo t = 0 ICR-- new; commit = 0 none before",
        "install u = 0 ICU-- new; undo t = 0 ICR-- new; accept = -1 ICR-- new; "
        "rollback = -1 ICR-- new; undo = -1 ICR-- new; verify = 0 ICR-- new; commit = 0 none "
        "before",
        "install u = 0 ICU-- new; undo tc = 0 none before",
        // Verify and repair.
        "install = 0 IC--- new; verify = 0 IC--- new; spoil; verify = 9 IC--E -; heal; "
        "verify = 0 IC--- new",
        "install = 0 IC--- new; spoil; verify = 9 IC--E -; repair r = 0 IC--- new; "
        "verify = 0 IC--- new; remove = 0 none removed",
        "install = 0 IC--- new; spoil; repair s = 0 IC--- new",
        "install u = 0 ICU-- new; spoil; verify = 9 ICU-E -; repair r = -1 ICU-E -; "
        "undo = 0 none before",
        "install t = 0 IP--- before; verify = -1 IP--- before"),
    case_name);

// Failures of one command, in the middle of the tree and behind some that have done their work.
INSTANTIATE_TEST_SUITE_P(
    Failures, InstallLife,
    testing::Values(
        // Refused before anything is touched.
        "fail can 1 1 trap=9; install = 9 none before",
        "fail can 1 1 trap=8; install u = 9 none before",
        "fail can 1 2 trap=9; install tu = 9 none before",
        "fail backup 1 0 trap=9; install u = 9 none before; install p = 9 none before",
        "fail backup 1 0 trap=8; install u = 9 none before; install p = 0 IC--- new",
        "block; install u = 9 none before; install p = 0 IC--- new; free",
        "block; install tu = 9 none before; install tp = 0 IP--- before; rollback = 0 none before; "
        "free",
        // In the work: without a backup an error, with one the tree of before.
        "fail do 1 1 trap=9; install = 9 IC--E -; mend; install = -1 IC--E -; "
        "install f = 0 IC--- new; remove = 0 none removed",
        "fail do 1 1 trap=8; install = 9 IC--E -; mend; repair r = 0 IC--- new",
        "fail do 1 1 trap=9; install u = 9 none before",
        "fail do 1 1 trap=10; install = 10 IC--E -",
        "fail do 1 2 trap=9; install t = 9 none before",
        "fail do 1 2 trap=9; install tu = 9 none before",
        "fail do 1 2 trap=9; install tw = 9 none before",
        "fail do 1 2 trap=9; install tcu = 9 none before",
        "fail do 1 3 trap=9; install tc = 9 IP--E -; mend; install f = 0 IC--- new",
        "fail do 1 3 trap=9; install tcu = 9 none before",
        "fail do 1 3 trap=9; install tcw = 9 none before",
        "fail do 1 7 trap=9; install = 7 IC--- new", "fail do 1 7 trap=9; install u = 7 ICU-- new",
        "fail do 1 1 trap=7; install u = 7 ICU-- new; undo = 0 none before",
        // In the commit.
        "install t = 0 IP--- before; fail can 1 3 trap=8; commit = 8 IP--- before; mend; "
        "commit = 0 IC--- new",
        "install t = 0 IP--- before; fail do 1 3 trap=9; commit = 9 IP--E -; mend; "
        "commit = -1 IP--E -; rollback = -1 IP--E -; verify = -1 IP--E -; install f = 0 IC--- new",
        "install tu = 0 IPU-- before; fail do 1 3 trap=9; commit = 9 none before",
        "install tw = 0 IPP-- before; fail do 1 3 trap=9; commit = 9 none before",
        "install tw = 0 IPP-- before; fail backup 1 0 trap=8; commit = 8 IPP-- before; "
        "commit p = 0 IC--- new",
        "install tw = 0 IPP-- before; block; commit p = 0 IC--- new; free",
        "install tu = 0 IPU-- before; fail do 1 9 trap=9; commit = 7 ICU-- new",
        // In what follows.
        "install u = 0 ICU-- new; fail can 1 6 trap=9; accept = 9 ICU-- new",
        "install u = 0 ICU-- new; fail do 1 6 trap=9; accept = 9 ICU-E new; mend; "
        "undo = 0 none before",
        "install u = 0 ICU-- new; fail do 1 10 trap=9; accept = 7 IC--- new",
        "install tu = 0 IPU-- before; fail can 2 2 trap=9; rollback = 9 IPU-- before; mend; "
        "rollback = 0 none before",
        "install tu = 0 IPU-- before; fail do 2 2 trap=9; rollback = 9 IPU-E -",
        "install tu = 0 IPU-- before; fail do 2 2 trap=7; rollback = 7 none before",
        "install tu = 0 IPU-- before; fail do 2 8 trap=9; rollback = 7 none before",
        "install u = 0 ICU-- new; fail can 1 1 untrap=9; undo = 9 ICU-- new; mend; "
        "undo = 0 none before",
        "install u = 0 ICU-- new; fail do 1 1 untrap=9; undo = 9 ICU-E -; mend; "
        "undo = 0 none before",
        "install u = 0 ICU-- new; undo t = 0 ICR-- new; fail do 1 3 untrap=9; commit = 9 ICR-E -"),
    case_name);

// Force goes over every state and leaves nothing of what stood before.
INSTANTIATE_TEST_SUITE_P(
    Force, InstallLife,
    testing::Values(
        "install = 0 IC--- new; install f = 0 IC--- new; remove f = 0 none removed",
        "install = 0 IC--- new; fail can 1 1 trap=9; install f = 9 IC--- new",
        "install t = 0 IP--- before; install f = 0 IC--- new",
        "install t = 0 IP--- before; remove f = 0 none before",
        "install tw = 0 IPP-- before; install ft = 0 IP--- before; commit = 0 IC--- new",
        "install tw = 0 IPP-- before; remove f = 0 none before",
        "install t = 0 IP--- before; remove ft = 0 RP--- -; commit = 0 none before",
        "install t = 0 IP--- before; fail do 2 1 trap=9; remove f = 9 RC--E -; mend; "
        "remove f = 0 RC--- before",
        "install tu = 0 IPU-- before; install fu = 0 ICU-- new; undo = 0 none before",
        "install tu = 0 IPU-- before; remove f = 0 none before",
        "install u = 0 ICU-- new; install f = 0 IC--- new; remove = 0 none removed",
        "install u = 0 ICU-- new; install fu = 0 ICU-- new; undo = 0 none new",
        "install u = 0 ICU-- new; remove f = 0 none removed",
        "install u = 0 ICU-- new; remove fu = 0 RCU-- removed; undo = 0 IC--- new",
        "install u = 0 ICU-- new; undo t = 0 ICR-- new; install f = 0 IC--- new",
        "install u = 0 ICU-- new; undo t = 0 ICR-- new; remove f = 0 none removed"),
    case_name);

// A kill between two steps: what was cut goes on to its end, and nothing else may run that would
// leave the tree between two states.
#ifdef KM_KILL_POINTS // a release build has none
INSTANTIATE_TEST_SUITE_P(
    Kills, InstallLife,
    testing::Values(
        "kill execute.after_tree install u; again; "
        "install u = 0 ICU-- new; undo = 0 none before",
        "kill execute.after_tree install tu; again; install tu = 0 IPU-- before; "
        "rollback = 0 none before",
        "install t = 0 IP--- before; kill commit.before_tree commit; kill commit.after_tree "
        "commit; "
        "commit = 0 IC--- new",
        "install tu = 0 IPU-- before; kill commit.after_tree commit; refused rollback; refused "
        "accept; "
        "commit = 0 ICU-- new; undo = 0 none before",
        "install tw = 0 IPP-- before; kill commit.after_tree commit; commit = 0 ICU-- new; "
        "undo = 0 none before",
        "kill commit.after_tree install tcu; commit = 0 ICU-- new; undo = 0 none before",
        "install u = 0 ICU-- new; kill undo.before_partner undo; undo = 0 none before",
        "install u = 0 ICU-- new; kill undo.after_partner undo; refused accept; undo = 0 none "
        "before",
        "install u = 0 ICU-- new; kill undo.after_partner undo t; undo t = 0 ICR-- new; "
        "commit = 0 none before",
        "install u = 0 ICU-- new; undo t = 0 ICR-- new; kill commit.after_tree commit; "
        "commit = 0 none before"),
    case_name);
#endif

// What stops between two commands goes on there.
INSTANTIATE_TEST_SUITE_P(
    Stops, InstallLife,
    testing::Values("stop 4 install; again; install = 0 IC--- new",
                    "install t = 0 IP--- before; stop 5 commit; commit = 0 IC--- new",
                    "install tu = 0 IPU-- before; stop 9 commit; stop 3 commit; "
                    "commit = 0 ICU-- new; undo = 0 none before"),
    case_name);

// What stood there is left, by the commit as by the remove; what the package put there goes, also
// where its commit was cut behind the rename.
TEST_F(LifeTest, APreparedInstallThatReplacesNothingTakesNothingAway) {
    for (const char* commit :
         {"commit = 0 ICU-- -; accept = 0 IC--- -",
#ifdef KM_KILL_POINTS
          "kill commit.after_tree commit; commit = 0 ICU-- -; accept = 0 IC--- -"
#endif
         }) {
        {
            stores all(dir_.at("store"));
            std::unique_ptr<km::unzipping_channel> data;
            const auto package = from_package_file(all, data);
            ASSERT_TRUE(package);
            auto& tree = dynamic_cast<km::cm_composite_command&>(
                *km::list_iterator(package->get_children()).nextElement());
            for (km::list_iterator each(tree.get_children()); each.hasMoreElements();)
                if (auto* add = dynamic_cast<km::cm_add_object*>(each.nextElement()))
                    add->replace_if_existing = 0;
            ASSERT_EQ(run(*package, false, "install", mode_of("tu")), 0);
        }
        play(commit);
        EXPECT_EQ(picture_of(dir_.at("target")).count("/opt/deep/below/file"), 1U);
        play("remove = 0 none before");
    }
}
