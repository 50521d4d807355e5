// The walk of composites: order, folding, stops, alignment of the stream, checkpoints, undo trees.
#include "composite_command.h"

#include "engine_hooks.h"
#include "log_objects.h"
#include "restart.h"

#include "support/has.h"
#include "support/recording_command.h"

#include <gtest/gtest.h>

using namespace km;
using km_test::recording_command;
using km_test::tree;
using km_test::u;

namespace {

const ustring never("1 == 2"), broken("1 == ");

// A reader without data that stands at an offset.
struct source {
    explicit source(long offset) : zip(&bytes) {
        bytes.inhibit(1);
        zip.set_skip_tail(0);
        zip.set_bytes_read(offset);
    }
    array_input_channel bytes{nullptr, 0};
    unzipping_channel zip;
};

} // namespace

TEST(CompositeWalk, OrderFollowsActionPhaseAndFlag) {
    const struct {
        int action, phase;
        const char* order;
    } cases[] = {{1, 1, "a b c 0"},  {1, 2, "a b c 0"},  {1, 3, "a b c 0"}, {1, 6, "a b c 0"},
                 {1, 7, "c b a 0"},  {1, 8, "a b c 0"},  {1, 9, "c b a 0"}, {1, 10, "a b c 0"},
                 {1, 11, "a b c 0"}, {2, 1, "c b a 0"},  {2, 2, "c b a 0"}, {2, 8, "c b a 0"},
                 {3, 1, "a b c 0"},  {4, 10, "a b c 0"}, {4, 7, "a b c 0"}};
    for (const auto& one : cases) {
        tree of("a b c");
        EXPECT_EQ(of.walk(one.action, one.phase), one.order) << one.action << one.phase;
        tree forward("a b c");
        forward.package.reverse_on_remove = 0;
        EXPECT_EQ(forward.walk(one.action, one.phase), "a b c 0");
    }
}

TEST(CompositeWalk, ResultsOfChildrenFold) {
    const struct {
        int child, uncompressed;
        const char* walk; // calls and result of the root
        int executed, in_commit;
    } cases[] = {{0, 0, "a z 0", 1, 1}, {1, 0, "a 1", 1, 1},   {2, 0, "a 2", 0, 0},
                 {3, 0, "a z 3", 1, 1}, {4, 0, "a z 4", 0, 0}, {5, 0, "a z 5", 1, 1},
                 {6, 0, "a 6", 0, 0},   {6, 1, "a 6", 1, 1},   {7, 0, "a z 7", 1, 1},
                 {8, 0, "a z 7", 1, 1}, {9, 0, "a z 7", 1, 1}, {10, 0, "a 10", 0, 0},
                 {11, 0, "a 10", 0, 0}, {99, 0, "a 10", 0, 0}};
    for (const auto& one : cases) {
        tree of("a" + std::to_string(one.child) + " z");
        of.package.not_compressed_installation = one.uncompressed;
        of[0].in_commit = 1;
        EXPECT_EQ(of.walk(), one.walk) << one.child;
        EXPECT_EQ(of[0].executed, one.executed) << one.child;
        EXPECT_EQ(of[0].execute_in_commit, one.in_commit) << one.child;
        EXPECT_EQ(of.package._last_result, 0u) << one.child;
    }
    const char* words[] = {"success_in_a_reboot", "success_retry",     "warning",
                           "temporary_failure",   "permanent_failure", "fatal_failure"};
    for (int code = 5; code <= 10; ++code) {
        tree of("a" + std::to_string(code));
        of.walk();
        EXPECT_EQ(of.package.operation_result, u(words[code - 5]));
    }
}

// Each composite takes the top bit off; what is left reaches the next walk.
TEST(CompositeWalk, LowerBitsSurviveToTheNextWalk) {
    const struct {
        const char* children;
        std::vector<int> results; // of this walk and of those behind it
    } cases[] = {{"", {0, 0}},
                 {"a4 b3", {4, 0}},
                 {"a7 b3", {3, 7, 0}},
                 {"a7 b5 c3 d4", {4, 5, 7, 0}},
                 {"a7 b3 c1", {1, 3, 7}},
                 {"a3 b6 c7", {6, 3, 7, 0}}};
    for (const auto& one : cases) {
        tree of(one.children);
        for (const int wanted : one.results) {
            of.walk();
            EXPECT_EQ(of.package.result, wanted) << one.children;
            for (auto* child : of.commands)
                child->set_executed(1); // the next walk runs none of them
            if (wanted == 6)
                of[2].set_executed(0);
        }
    }
    tree nested;
    auto& inner = nested.inner(0);
    nested.add(inner, "a7 b4");
    EXPECT_EQ(nested.walk(), "a b 4");
    EXPECT_EQ(inner.executed, 0); // it is entered again
    EXPECT_EQ(nested.package._last_result, 1u);
}

TEST(CompositeWalk, AStopInsideKeepsTheStreamAligned) {
    const struct {
        int root_stops, inner_stops, phase, code, skip;
        const char* walk;
        int inner, rest; // result of the inner composite, executed of the child behind the failure
    } cases[] = {{0, 1, 1, 9, 0, "a skip:b skip:c d 7", 9, 1},
                 {0, 1, 2, 8, 0, "a skip:b skip:c d 7", 9, 1},
                 {0, 1, 3, 9, 0, "a d 7", 9, 0},
                 {1, 0, 1, 8, 0, "a 9", 9, 0},
                 {1, 1, 1, 9, 0, "a 9", 9, 0},
                 {0, 0, 1, 9, 0, "a b c d 7", 7, 1},
                 {0, 1, 1, 9, 6, "a skip:b d 7", 9, 0}};
    for (const auto& one : cases) {
        tree of;
        of.package.stop_on_failure = one.root_stops;
        auto& inner = of.inner(one.inner_stops);
        of.add(inner, "a" + std::to_string(one.code) + " b c");
        of.add(of.package, "d");
        of[1].skip = static_cast<cm_result>(one.skip);
        EXPECT_EQ(of.walk(a_execute, one.phase), one.walk);
        EXPECT_EQ(inner.result, one.inner) << one.walk;
        EXPECT_EQ(of[0].executed, 1); // the reverse must reach what half failed
        EXPECT_EQ(of[1].executed, one.rest) << one.walk;
    }
    tree reverse("a b9 c");
    reverse.package.stop_on_failure = 1;
    EXPECT_EQ(reverse.walk(a_reverse, p_do), "c b 9");
}

TEST(CompositeWalk, AFalseConditionStepsOverTheDataAndTellsAContainer) {
    const struct {
        int action, phase, connected, executed;
        long restart_offset;
        int skip, uncompressed;
        const char* walk;
        int executed_then;
    } cases[] = {{1, 1, 0, 0, 0, 0, 0, "skip:a b 0", 1},   {1, 2, 1, 0, 0, 0, 0, "skip:a b 0", 1},
                 {1, 3, 0, 0, 0, 0, 0, "b 0", 1},          {2, 1, 0, 0, 0, 0, 0, "b 0", 1},
                 {1, 1, 1, 1, 500, 0, 0, "b 0", 1},        {1, 1, 1, 0, 500, 0, 0, "skip:a b 0", 1},
                 {1, 1, 0, 1, 500, 0, 0, "skip:a b 0", 1}, {1, 1, 0, 0, 0, 6, 0, "skip:a 6", 0},
                 {1, 1, 0, 0, 0, 6, 1, "skip:a 6", 1},     {1, 1, 0, 0, 0, 9, 0, "skip:a 10", 0}};
    for (const auto& one : cases) {
        tree of("a b");
        source stream(777);
        of.package.input_channel = &stream.zip;
        of.package.connected = one.connected;
        of.package.restart_offset = one.restart_offset;
        of.package.not_compressed_installation = one.uncompressed;
        of[0].kind = "com.ombrel.sd.cmObjects.CmGenericContainer";
        of[0].caption = u("the docs");
        of[0].condition = never;
        of[0].executed = one.executed;
        of[0].skip = static_cast<cm_result>(one.skip);
        km_test::engine_home home; // a connected run asks for the distance of checkpoints
        EXPECT_EQ(of.walk(one.action, one.phase), one.walk);
        EXPECT_EQ(of[0].executed, one.executed_then) << one.walk;
        EXPECT_EQ(of.package.current_offset, one.action == a_execute ? 777 : 0);
        const bool left_out = one.action == 1 && one.phase < 3 && !one.executed && !one.skip;
        EXPECT_EQ(km_test::told(of.messages), left_out ? "788 " : "") << one.walk;
        const std::string text = of.messages.text_of(0);
        EXPECT_EQ(km_test::has(text, "'the docs' is"), left_out) << text;
        const int before = of.messages.get_count(); // a container is told of once
        of.walk(one.action, one.phase);
        EXPECT_EQ(of.messages.get_count(), before);
    }
}

TEST(CompositeWalk, ConditionsThatCannotBeEvaluatedAreFatal) {
    const struct {
        ustring root, child;
        int package_executed, restart_internal, can, backup;
        const char* messages; // of can_execute, can_backup, do_execute
        const char* walk;
    } cases[] = {{ustring(), broken, 0, 0, 10, 10, "130 130 130 ", "10"},
                 {never, ustring(), 0, 0, 9, 9, "131 131 ", "a 0"},
                 {broken, ustring(), 0, 0, 10, 10, "130 130 ", "a 0"},
                 {never, ustring(), 1, 0, 0, 9, "131 ", "0"},
                 {never, ustring(), 1, 1, 9, 9, "131 131 ", "0"}};
    for (const auto& one : cases) {
        tree of("a");
        of.package.condition = one.root;
        of[0].condition = one.child;
        of.package.executed = one.package_executed;
        of.package.restart_internal = one.restart_internal;
        of.package.cm_composite_command::can_execute(a_execute, p_do);
        EXPECT_EQ(of.package.result, one.can) << &one - cases;
        of.package.cm_composite_command::can_backup(a_execute);
        EXPECT_EQ(of.package.result, one.backup) << &one - cases;
        EXPECT_EQ(of.walk(), one.walk) << &one - cases;
        EXPECT_EQ(km_test::told(of.messages), one.messages) << &one - cases;
    }
}

TEST(CompositeWalk, PhasesOfTheSecondLeg) {
    tree of("a b c");
    of[1].in_commit = 1;
    EXPECT_EQ(of.walk(a_execute, p_backup_finish), "a b c 0");
    for (auto* child : of.commands)
        EXPECT_EQ(child->executed, 0);
    of[1].execute_in_commit = 0;
    of[2].executed = 1; // resumed behind it
    of[2].condition = never;
    EXPECT_EQ(of.walk(a_execute, p_commit), "a b 0");
    of.package.executed = 1;
    EXPECT_EQ(of.walk(a_execute, p_accept), "a 0"); // b did its work in the commit
    of[1].execute_in_commit = 1;
    EXPECT_EQ(of.walk(a_execute, p_commit_cleanup), "b a 0");
}

TEST(CompositeCheck, ATemporaryFailureLetsTheOthersReport) {
    const struct {
        int a, b, stop, device, asks_b, result;
        const char* word;
    } cases[] = {{0, 7, 1, 1, 1, 0, "success"},           {2, 4, 1, 1, 1, 0, "success"},
                 {8, 0, 1, 1, 1, 8, "temporary_failure"}, {8, 9, 1, 1, 1, 9, "temporary_failure"},
                 {8, 0, 0, 1, 1, 0, "temporary_failure"}, {9, 0, 1, 1, 0, 9, "success"},
                 {9, 0, 0, 3, 1, 0, "permanent_failure"}, {9, 0, 0, 7, 0, 9, "success"},
                 {3, 0, 0, 1, 0, 10, "fatal_failure"},    {10, 0, 0, 1, 0, 10, "fatal_failure"}};
    for (const auto& one : cases) {
        tree of("a b");
        of[0].can = static_cast<cm_result>(one.a);
        of[1].can = static_cast<cm_result>(one.b);
        of.package.stop_on_failure = one.stop;
        of.package.device_failures = static_cast<unsigned>(one.device);
        of.package.cm_composite_command::can_execute(a_execute, p_do);
        EXPECT_EQ(of.log, one.asks_b ? "can:a can:b " : "can:a ") << &one - cases;
        EXPECT_EQ(of.package.result, one.result) << &one - cases;
        EXPECT_EQ(of.package.operation_result, u(one.word)) << &one - cases;
    }
    for (const int answer : {0, 8, 7}) {
        tree of("a b c");
        of[0].backup = static_cast<cm_result>(answer);
        of[2].scope = 2;
        of.package.connected = 1; // the user's commands do not belong to this pass
        of.package.cm_composite_command::can_backup(a_execute);
        EXPECT_EQ(of.log, answer == 7 ? "can_backup:a " : "can_backup:a can_backup:b ");
        EXPECT_EQ(of.package.result, answer);
    }
}

TEST(CompositeCheck, ATemporaryFailureIsLoggedAsFailed) {
    for (const auto& [mode, phase, logged] :
         {std::tuple(0, 1, true), {m_preferably_not_transactional, 1, false}, {0, 7, false}}) {
        km_test::engine_home home;
        tree of("a b");
        of.package.stop_on_failure = 1;
        of.package.mode = mode;
        of.package.log_object_list = new log_object_list;
        of.package.log_object_list->location = pathname(home.dir.at("logs").c_str());
        of[0].can = of[1].can = cm_command::temporary_failure;
        of.package.cm_composite_command::can_execute(a_execute, phase);
        const std::string text = home.dir.read("logs/pkg^1.0.log");
        EXPECT_EQ(km_test::has(text, "[failure]\ta\n[failure]\tb\n"), logged);
        EXPECT_EQ(of[0].result, cm_command::temporary_failure);
    }
}

namespace {

// A package in a catalog on disk, with a profile.
struct Checkpoint : testing::Test {
    Checkpoint() {
        set_engine_hooks({});
        of.package.catalog = &catalog;
        of.package.catalog_entry = new cm_catalog_entry;
        of.package.catalog_entry->profile_name = pathname(home.dir.write("work/old", "x").c_str());
        EXPECT_TRUE(
            catalog.update(of.package.catalog_key.clone(), of.package.catalog_entry->clone()));
    }
    ~Checkpoint() override { set_engine_hooks({}); }
    // The entry as a new process would find it.
    std::unique_ptr<cm_catalog_entry> on_disk(const char* name = "pkg") {
        Persistent_Hashtable reader(pathname(home.dir.at("packages.pht").c_str()), 0, 0, nullptr);
        const auto* entry = reader.get_as<cm_catalog_entry>(cm_catalog_key(u(name), u("1.0")));
        return std::unique_ptr<cm_catalog_entry>(entry ? new cm_catalog_entry(*entry) : nullptr);
    }
    km_test::engine_home home;
    Persistent_Hashtable catalog{pathname(home.dir.at("packages.pht").c_str()), 1, 0, nullptr};
    tree of{"a b c"};
};

std::string hooks_called;

} // namespace

TEST_F(Checkpoint, ProfileAndEntryStandBeforeABootableCommandRuns) {
    hooks_called.clear();
    engine_hooks hooks;
    hooks.make_durable = [] { return hooks_called += "durable ", 1; };
    hooks.prepare_restart = [](cm_package*, int needed) {
        return hooks_called += needed ? "prepare " : "needless ", 1;
    };
    hooks.unprepare_restart = [](cm_package*) { return hooks_called += "unprepare ", 1; };
    set_engine_hooks(hooks);
    of.package.next_resume_stage = 1;
    of[1].bootable = 1;
    source stream(900);
    of.package.input_channel = &stream.zip;
    pathname profile;
    of[1].on_run = [&](recording_command&) {
        EXPECT_EQ(hooks_called, "durable durable prepare ");
        EXPECT_EQ(on_disk()->current_result, 1);
        profile = on_disk()->profile_name;
        EXPECT_FALSE(home.dir.exists("work/old"));
        cm_package* read = nullptr;
        ASSERT_EQ(of.package.load_list(profile, read), 1);
        const std::unique_ptr<cm_package> resumed(read);
        EXPECT_EQ(resumed->resume_stage, 1);
        EXPECT_EQ(resumed->current_offset, 900);
        std::string executed;
        for (list_iterator at(resumed->get_children()); at.hasMoreElements();)
            executed += std::to_string(dynamic_cast<restart&>(*at.nextElement()).executed);
        EXPECT_EQ(executed, "100");
    };
    EXPECT_EQ(of.walk(), "a b c 0");
    EXPECT_EQ(hooks_called, "durable durable prepare unprepare ");
    EXPECT_EQ(of.package.catalog_entry->profile_name, profile);
    EXPECT_EQ(of.package.catalog_entry->current_result, 0); // only what is stored tells of a reboot
}

TEST_F(Checkpoint, FailedPreparationLeavesTheOldState) {
    of[1].bootable = 1;
    engine_hooks hooks;
    hooks.make_durable = [] { return 0; };
    set_engine_hooks(hooks);
    EXPECT_EQ(of.walk(), "a 9");
    EXPECT_EQ(on_disk()->profile_name, pathname(home.dir.at("work/old").c_str()));
    EXPECT_TRUE(home.dir.exists("work/old"));

    hooks = {};
    hooks.prepare_restart = [](cm_package*, int) { return 0; };
    set_engine_hooks(hooks);
    EXPECT_EQ(of.walk(), "9"); // a is executed already
    hooks = {};
    hooks.unprepare_restart = [](cm_package*) { return 0; };
    set_engine_hooks(hooks);
    EXPECT_EQ(of.walk(), "b 9");
}

TEST_F(Checkpoint, OfAnUndoStoresBothEntries) {
    tree undone;
    undone.package.name = u("main");
    undone.package.catalog_key = cm_catalog_key(u("main"), u("1.0"));
    undone.package.catalog = &catalog;
    of.package.executing_as_undo = 1;
    of.package.owns_partner = false;
    of.package.partner_package = &undone.package;
    of[1].bootable = 1;
    EXPECT_EQ(of.walk(), "a 9"); // the package that is undone has no entry
    EXPECT_TRUE(home.dir.exists("work/old"));
    undone.package.catalog_entry = new cm_catalog_entry;
    EXPECT_EQ(of.walk(), "b c 0");
    ASSERT_TRUE(on_disk("main"));
    EXPECT_EQ(on_disk("main")->current_result, 1);
    EXPECT_EQ(undone.package.catalog_entry->current_result, 0);
}

TEST(CompositeBackup, TheUndoTreeRunsForwardInReverse) {
    for (const int action : {a_execute, a_reverse}) {
        tree of("a b c d");
        auto& inner = of.inner(1);
        of.add(inner, "e f");
        of.package.connected = 1;
        of[1].condition = never;
        of[2].scope = 2; // another pass
        of[3].has_undo = false;
        const std::unique_ptr<cm_command> undo(of.package.do_backup(&of.package, nullptr, action));
        auto* root = dynamic_cast<cm_package*>(undo.get());
        ASSERT_TRUE(root);
        EXPECT_EQ(of.log, action == a_execute ? "undo:f undo:e undo:d undo:a "
                                              : "undo:a undo:d undo:e undo:f ");
        EXPECT_EQ(root->get_command_index(), of.package.get_command_index());
        EXPECT_EQ(root->count_commands(), 4); // the inner composite and three leaves
        for (const size_t i : {0, 4, 5}) {
            auto* one = root->get_command_executed(of[i].get_command_index());
            ASSERT_TRUE(one);
            EXPECT_EQ(one->get_name(), u("-" + of[i].name));
        }
        EXPECT_TRUE(root->get_command_executed(inner.get_command_index()));
    }
    for (const auto& [undo, condition, wanted] : {std::tuple(9, ustring(), 9), {0, broken, 10}}) {
        tree of("a b"); // what was built before the failure is not leaked
        of[0].undo = static_cast<cm_result>(undo);
        of[0].condition = condition;
        EXPECT_EQ(of.package.do_backup(&of.package, nullptr, a_execute), nullptr);
        EXPECT_EQ(of.package.result, wanted);
    }
}

TEST(Composite, UndoOfWhatRanAsksThePackageThatItUndoes) {
    for (const auto& [own, leaf, composite] : {std::tuple(1, 1, 1), {0, 0, 0}, {-1, 1, 0}}) {
        tree main("a"), undo("x");
        auto& inner = undo.inner(1);
        undo.package.is_backup_package = undo.package.undo_only_executed_actions = 1;
        undo.package.owns_partner = false;
        undo.package.partner_package = &main.package;
        main[0].executed = own;
        const int index = own < 0 ? -7 : main[0].get_command_index(); // below 0: not known there
        undo[0].set_command_index(index);
        inner.set_command_index(index);
        EXPECT_EQ(undo[0].is_to_be_executed(), leaf);
        EXPECT_EQ(inner.is_to_be_executed(), composite);
        undo.package.is_backup_package = 0;
        EXPECT_EQ(inner.is_to_be_executed(), 1);
    }
}

TEST(Composite, SumsAndSkips) {
    tree of("a b c");
    of[0].timeout = 40;
    of[1].timeout = 2;
    EXPECT_EQ(of.package.get_timeout(nullptr, 1, false, false), 42);
    of[1].timeout = -1;
    EXPECT_EQ(of.package.get_timeout(nullptr, 1, false, false), -1);
    of[0].executed = 1;
    of.package.skip_data();
    of[1].executed = 0;
    source stream(0); // with a stream, what was done has consumed its data
    of.package.input_channel = &stream.zip;
    of[1].skip = cm_command::failure;
    of.package.skip_data();
    EXPECT_EQ(of.log, "skip:a skip:b skip:c skip:b ");
    EXPECT_EQ(of.package.result, cm_command::fatal_failure);
    const cm_composite_command copy(of.package); // the result too, though children are added
    EXPECT_EQ(copy.result, cm_command::fatal_failure);
    EXPECT_EQ(copy.get_children().size(), 3);
}
