// The command that asks for the users to be logged off.
#include "logoff.h"

#include "support/coded.h"
#include "support/recording_command.h"

#include <gtest/gtest.h>

using namespace km;
using km_test::tree;
using km_test::u;

namespace {
struct counted : logoff {
    int times = 0;
    void execute_logoff() override { ++times; }
};
} // namespace

TEST(Logoff, ActsByActionAndPhase) {
    const struct {
        int action, phase, result, times, done;
    } cases[] = {{1, 1, 0, 2, 1},  {1, 3, 0, 1, 1}, {1, 5, 0, 1, 1},  {1, 4, 0, 0, 0},
                 {1, 2, 0, 0, 0},  {1, 7, 0, 0, 0}, {1, 11, 0, 0, 0}, {2, 1, 0, 1, 0},
                 {2, 3, 0, 1, 1},  {2, 5, 0, 1, 1}, {2, 2, 0, 0, 0},  {2, 6, 0, 0, 0},
                 {2, 10, 0, 0, 0}, {2, 4, 9, 0, 0}, {2, 11, 9, 0, 0}, {2, 0, 9, 0, 0},
                 {3, 1, 0, 0, 0},  {4, 4, 0, 0, 0}, {7, 1, 0, 0, 0}};
    for (const auto& one : cases) {
        tree of;
        auto* command = new counted;
        of.package.add(command, nullptr);
        command->during_install = command->during_remove = command->during_commit = 1;
        command->execute_in_commit = 1; // of a former pass
        command->do_execute(one.action, one.phase);
        EXPECT_EQ(command->result, one.result) << &one - cases;
        EXPECT_EQ(command->times, one.times) << &one - cases;
        EXPECT_EQ(command->execute_in_commit, one.done) << &one - cases;

        command->during_install = command->during_remove = command->during_commit = 0;
        command->during_undo = command->force = command->force_if_locked = 1;
        command->times = 0;
        command->do_execute(one.action, one.phase);
        EXPECT_EQ(command->times, 0) << &one - cases;
        command->during_install = command->during_remove = command->during_commit = 1;
        of.package.mode = m_device;
        command->do_execute(one.action, one.phase);
        EXPECT_EQ(command->result, cm_command::failure);
        EXPECT_EQ(command->times, 0);
    }
}

TEST(Logoff, UndoTakesTheMomentOfTheUndo) {
    logoff command;
    command.during_undo = command.force = 1;
    command.condition = u"1 == 1";
    for (const int action : {a_execute, a_reverse}) {
        const std::unique_ptr<cm_command> undo(command.get_undo_command(action));
        EXPECT_EQ(dynamic_cast<logoff&>(*undo).during_install, 1);
        EXPECT_EQ(dynamic_cast<logoff&>(*undo).force, 1);
        EXPECT_EQ(undo->condition, command.condition);
    }
    EXPECT_EQ(command.during_install, 0);
    EXPECT_EQ(command.get_undo_command(a_verify_execute), nullptr);
    logoff alone; // in no package
    alone.do_execute(a_execute, p_do);
    EXPECT_EQ(alone.result, cm_command::failure);
}

TEST(Logoff, CodedForm) {
    km_test::engine_home home; // where factories are found
    logoff command;
    command.force = command.during_undo = 1;
    const std::string all = km_test::encoded(command);
    using namespace std::string_literals;
    const std::string fields = "\0\xC8\0\1\0\xC9\0\0\0\xCA\0\0\0\xCB\0\0\0\xCC\0\1\0\xCD\0\0"s;
    EXPECT_EQ(all.substr(all.size() - fields.size() - 2), fields + "\xFF\xFF");
    EXPECT_EQ(all.find("com.ombrel.sd.cmObjects.CmLogoff\0\0\0\1"s), 3u);

    const auto read = km_test::decoded_as<logoff>(all);
    ASSERT_TRUE(read);
    EXPECT_EQ(std::tuple(read->force, read->force_if_locked, read->during_install,
                         read->during_remove, read->during_undo, read->during_commit),
              std::tuple(1, 0, 0, 0, 1, 0));
}
