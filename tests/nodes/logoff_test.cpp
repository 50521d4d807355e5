// The command that asks for the users to be logged off.
#include "logoff.h"

#include "array_channel.h"
#include "codec.h"
#include "decode_channel.h"
#include "encode_channel.h"

#include "support/fake_definition.h"
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

TEST(Logoff, TextForm) {
    km_test::fake_importer from({{"force", "1"},
                                 {"during_remove", "1"},
                                 {"during_commit", "1"},
                                 {"condition", "1 == 1"},
                                 {"is_per_user", "1"}});
    logoff command;
    command.import(from);
    EXPECT_EQ(from.asked, "force force_if_locked during_install during_remove during_undo "
                          "during_commit condition is_per_user ");
    EXPECT_EQ(command.scope, 2);
    km_test::fake_exporter to;
    command.export_(to);
    logoff().export_(to);
    EXPECT_EQ(to.text, "logoff{ force=1 during_remove=1 during_commit=1 condition=1 == 1 } "
                       "logoff{ condition= } ");
}

TEST(Logoff, CodedForm) {
    km_test::engine_home home; // where factories are found
    logoff command;
    command.force = command.during_undo = 1;
    array_output_channel bytes(64);
    {
        encode_channel channel(&bytes);
        encoder(&channel).encode_object(&command);
    }
    const std::string all(reinterpret_cast<const char*>(bytes.get_data()),
                          static_cast<size_t>(bytes.get_count()));
    using namespace std::string_literals;
    const std::string fields = "\0\xC8\0\1\0\xC9\0\0\0\xCA\0\0\0\xCB\0\0\0\xCC\0\1\0\xCD\0\0"s;
    EXPECT_EQ(all.substr(all.size() - fields.size() - 2), fields + "\xFF\xFF");
    EXPECT_EQ(all.find("com.ombrel.sd.cmObjects.CmLogoff\0\0\0\1"s), 3u);

    array_input_channel inner(reinterpret_cast<const unsigned char*>(all.data()),
                              static_cast<int>(all.size()));
    inner.inhibit(1);
    decode_channel channel(&inner);
    decoder in(&channel);
    codable* object = nullptr;
    in.decode_object(object);
    const std::unique_ptr<codable> owned(object);
    const auto* read = dynamic_cast<logoff*>(object);
    ASSERT_TRUE(read);
    EXPECT_EQ(std::tuple(read->force, read->force_if_locked, read->during_install,
                         read->during_remove, read->during_undo, read->during_commit),
              std::tuple(1, 0, 0, 0, 1, 0));
}
