// The life of a remove: it may wait, be taken back and be made final, as an install.
#include "life_fixture.h"

using namespace km_test;

namespace {
class RemoveLife : public LifeTest, public testing::WithParamInterface<const char*> {};
} // namespace

TEST_P(RemoveLife, EndsAsTold) { play(std::string("install = 0 IC--- new; ") + GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Ways, RemoveLife,
    testing::Values("remove u = 0 RCU-- removed; undo = 0 IC--- new; verify = 0 IC--- new; "
                    "remove = 0 none removed",
                    "remove u = 0 RCU-- removed; accept = 0 none removed",
                    "remove p = 0 RCU-- removed; undo t = 0 RCR-- removed; commit = 0 IC--- new; "
                    "remove u = 0 RCU-- removed; undo = 0 IC--- new",
                    "remove u = 0 RCU-- removed; install f = 0 IC--- new; remove = 0 none removed",
                    "remove t = 0 RP--- new; commit = 0 none removed",
                    "remove t = 0 RP--- new; rollback = 0 IC--- new; remove = 0 none removed",
                    "remove tu = 0 RPU-- new; commit = 0 RCU-- removed; undo = 0 IC--- new",
                    "remove tu = 0 RPU-- new; rollback = 0 IC--- new",
                    "remove tu = 0 RPU-- new; accept = 0 RP--- new; commit = 0 none removed",
                    "remove tw = 0 RPP-- new; commit = 0 RCU-- removed; accept = 0 none removed",
                    "remove tw = 0 RPP-- new; rollback = 0 IC--- new", "remove tc = 0 none removed",
                    "remove tcu = 0 RCU-- removed; undo = 0 IC--- new",
                    "remove ua = 0 none removed", "remove tcua = 0 none removed",
                    "remove tua = 0 RP--- new; commit = 0 none removed",
                    "spoil; remove u = 0 RCU-- -; accept = 0 none -"),
    case_name);

INSTANTIATE_TEST_SUITE_P(
    Failures, RemoveLife,
    testing::Values("fail can 2 1 trap=9; remove = 9 IC--- new",
                    "fail backup 2 0 trap=9; remove u = 9 IC--- new",
                    "block; remove u = 9 IC--- new; free; remove u = 0 RCU-- removed",
                    "fail do 2 1 trap=9; remove = 9 IC--E -; mend; remove = -1 IC--E -; remove f = "
                    "0 none removed",
                    "fail do 2 1 trap=9; remove = 9 IC--E -; mend; repair r = 0 IC--- new",
                    "fail do 2 1 trap=9; remove u = 9 IC--- new; mend; remove u = 0 RCU-- removed; "
                    "undo = 0 IC--- new",
                    "fail do 2 2 trap=9; remove t = 9 IC--E new; mend; verify = 0 IC--- new",
                    "fail do 2 2 trap=9; remove tu = 9 IC--- new",
                    "remove t = 0 RP--- new; fail do 2 3 trap=9; commit = 9 RP--E -",
                    "remove tu = 0 RPU-- new; fail do 2 3 trap=9; commit = 9 IC--- new",
                    "remove tw = 0 RPP-- new; fail do 2 3 trap=9; commit = 9 IC--- new",
                    "fail do 2 3 trap=9; remove tcu = 9 IC--- new; mend; remove = 0 none removed",
                    "fail do 2 7 trap=9; remove u = 7 RCU-- removed; undo = 0 IC--- new",
                    "remove u = 0 RCU-- removed; fail do 1 1 untrap=9; undo = 9 RCU-E -; mend; "
                    "undo = 0 IC--- new"),
    case_name);

INSTANTIATE_TEST_SUITE_P(
    Stops, RemoveLife,
    testing::Values("stop 4 remove; again; remove = 0 none removed",
                    "remove t = 0 RP--- new; stop 5 commit; commit = 0 none removed",
                    "remove tu = 0 RPU-- new; stop 8 commit; stop 2 commit; "
                    "commit = 0 RCU-- removed; undo = 0 IC--- new"),
    case_name);

#ifdef KM_KILL_POINTS // a release build has none
INSTANTIATE_TEST_SUITE_P(
    Kills, RemoveLife,
    testing::Values(
        "kill execute.after_tree remove u; remove u = 0 RCU-- removed; undo = 0 IC--- new",
        "remove t = 0 RP--- new; kill commit.after_tree commit; commit = 0 none removed",
        "remove u = 0 RCU-- removed; kill undo.after_partner undo; undo = 0 IC--- new",
        "remove tu = 0 RPU-- new; kill commit.after_tree commit; commit = 0 RCU-- removed; "
        "undo = 0 IC--- new"),
    case_name);
#endif
