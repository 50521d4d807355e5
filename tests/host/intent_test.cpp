// A command that was cut, and which others pass beside it.
#include "intent.h"
#include "package.h"

#include "support/has.h"
#include "support/engine_home.h"

#include <gtest/gtest.h>

using kmhost::intent;
using kmhost::package_id;

namespace {

struct Intent : testing::Test {
    km_test::engine_home home;
};

enum answer { goes_on, refused, told };

} // namespace

TEST_F(Intent, WhatPassesBesideACutCommand) {
    const package_id p{"p", "1.0"}, newer{"p", "2.0"}, other{"q", "1.0"};
    const unsigned force = km::m_force, undoable = km::m_undoable;
    const auto of = [](const char* command, const package_id& id, unsigned mode = 0,
                       std::vector<std::string> definitions = {}) {
        return intent{command, id, "", std::move(definitions), mode, 0};
    };
    const struct {
        intent cut, wanted;
        answer should;
    } cases[] = {
        // The same command goes on with what was cut.
        {of("install", p), of("install", p), goes_on},
        {of("install", p), of("install", p, force), goes_on},
        {of("install", p, force), of("install", p), goes_on},
        {of("install", p), of("install", p, km::m_during_reboot), goes_on},
        {of("undo", p), of("undo", p), goes_on},
        // With other options or values it is another one.
        {of("install", p), of("install", p, undoable), refused},
        {of("install", p, undoable), of("install", p, undoable | force), goes_on},
        {of("install", p, undoable), of("install", p, force), told},
        {of("install", p), of("install", p, 0, {"a=b"}), refused},
        {of("install", p, 0, {"a=b"}), of("install", p, force, {"a=c"}), told},
        {of("install", p), of("remove", p), refused},
        {of("install", p), of("remove", p, force), told},
        {of("commit", p), of("rollback", p), refused},
        {of("remove", p), of("install", p), refused},
        {of("accept", p), of("undo", p), refused},
        {of("repair", p), of("remove", p), refused},
        // Versions hang together in an upgrade and in its undo; other packages never do.
        {of("install", p), of("install", newer), goes_on},
        {of("install", p), of("remove", newer), goes_on},
        {of("install", p), of("upgrade", newer), refused},
        {of("upgrade", newer), of("remove", p), refused},
        {of("upgrade", newer), of("remove", p, force), told},
        {of("upgrade", newer), of("upgrade", newer), goes_on},
        {of("undo", newer), of("verify", p), refused},
        {of("upgrade", newer), of("upgrade", other), goes_on},
        {of("install", p), of("remove", other), goes_on},
    };
    for (const auto& one : cases) {
        const auto what = one.cut.command + " " + one.cut.id.text() + ", then " +
                          one.wanted.command + " " + one.wanted.id.text() + " " +
                          std::to_string(one.wanted.mode);
        kmhost::outcome written, result, dry;
        ASSERT_TRUE(kmhost::write_intent(one.cut, written)) << what;
        EXPECT_EQ(kmhost::passes_cut(one.wanted, result), one.should != refused) << what;
        kmhost::tell_cut(one.wanted, dry);
        EXPECT_FALSE(dry.failed()) << what;
        for (const auto* told_of : {&result, &dry}) {
            ASSERT_EQ(told_of->messages.size(), one.should == goes_on ? 0U : 1U) << what;
            if (one.should != goes_on) {
                EXPECT_EQ(told_of->messages[0].id, "cut") << what;
                EXPECT_HAS(told_of->messages[0].text, "'kmctl resume " + one.cut.id.text() + "'")
                    << what;
            }
        }
        EXPECT_EQ(result.exit, one.should == refused ? kmhost::exit_refused : kmhost::exit_done);
        EXPECT_EQ(result.word, one.should == refused ? "refused" : kmhost::outcome().word) << what;
        kmhost::drop_intent(one.cut.id);
    }
}

// A refused command leaves what waits as it is; the one that goes on keeps the key of its report.
TEST_F(Intent, ARefusedCommandLeavesTheCutOne) {
    kmhost::outcome result;
    const package_id p{"p", "1.0"};
    intent cut{"install", p, "/t/p.spb", {"a=b"}, km::m_undoable, 1700000000};
    ASSERT_TRUE(kmhost::write_intent(cut, result));
    const auto before = kmhost::intent_of(p);
    ASSERT_TRUE(before);
    EXPECT_EQ(before->run.size(), 36U);
    intent forced{"remove", p, "", {}, km::m_force, 0};
    ASSERT_TRUE(kmhost::write_intent(forced, result));
    EXPECT_NE(kmhost::intent_of(p)->run, before->run);
    kmhost::put_back_intent(p, before);
    const auto after = kmhost::intent_of(p);
    ASSERT_TRUE(after);
    EXPECT_EQ(std::tie(after->command, after->file, after->definitions, after->mode, after->since,
                       after->run),
              std::tie(cut.command, cut.file, cut.definitions, cut.mode, cut.since, before->run));
    ASSERT_TRUE(kmhost::write_intent(cut, result));
    EXPECT_EQ(kmhost::intent_of(p)->run, before->run);
    kmhost::put_back_intent(p, std::nullopt);
    EXPECT_TRUE(kmhost::read_intents().empty());
}

TEST_F(Intent, OneThatIsBegunStandsOrSaysWhyNot) {
    const intent wanted{"remove", {"p", "1.0"}, "", {}, 0, 0};
    kmhost::outcome result;
    {
        kmhost::begun_intent begun(wanted);
        EXPECT_TRUE(begun.stands(result));
    }
    ASSERT_TRUE(kmhost::intent_of(wanted.id));
    EXPECT_EQ(kmhost::intent_of(wanted.id)->command, "remove");
    intent other = wanted;
    other.id = {"no/directory", "1.0"};
    kmhost::begun_intent begun(other);
    EXPECT_FALSE(begun.stands(result));
    EXPECT_TRUE(result.failed());
    EXPECT_HAS(result.messages.back().text, "no/directory^1.0 cannot be written: No such file");
}
