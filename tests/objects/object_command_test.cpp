// Object commands: when an object's operations run, reference counts, sharing control, undo.
#include "object_command.h"

#include "command_filter.h"
#include "refcounttable.h"

#include "support/fake_definition.h"
#include "support/recording_command.h"

#include <gtest/gtest.h>

using namespace km;
using km_test::u;

namespace {

// Stands on an imaginary machine as its fields say, and notes what is asked of it.
class fake_object : public uncoded<cm_object> {
  public:
    codable* clone() const override { return new fake_object(*this); }
    void import(importer& from) override { cm_object::import(from); }
    cm_result add(int phase) override { return note("add", phase); }
    cm_result remove(int phase) override { return note("remove", phase); }
    cm_result check_add(int phase) override { return note("check_add", phase); }
    cm_result check_remove(int phase) override { return note("check_remove", phase); }
    cm_result can_read() override { return note("can_read", 0); }
    cm_result skip_data() override { return note("skip", 0); }
    int exists(int phase) override { return phase == p_prepare ? staged : present; }
    int is_identical(int) override { return identical; }
    int is_newer() override { return newer; }
    int is_during_a_restart() override { return resumed; }
    int get_undo_replace_if_newer() override { return 5; }
    ustring get_name() override { return u(preview_name ? "shown" : "/obj"); }
    cm_object* get_undo_object() override {
        result = answer;
        auto* undo = answer == cm_command::success ? new fake_object(*this) : nullptr;
        if (undo)
            undo->ref_count = undo->is_shared = 0; // a new object knows nothing of sharing
        return undo;
    }

    int present = 1, staged = 1, identical = 0, newer = 0, resumed = 0;
    cm_result answer = cm_command::success;
    std::string* log = nullptr;

  private:
    cm_result note(const char* call, int phase) {
        *log += call + (phase ? std::to_string(phase) : "") + " ";
        return answer;
    }
};

class sharing_add : public cm_add_object {
  public:
    using cm_add_object::cm_add_object;
    codable* clone() const override { return new sharing_add(*this); }
    void do_sharing_control(int action, int phase) override {
        do_default_sharing_control(action, phase);
    }
};

template <class Command> struct setting {
    setting() {
        of.package.reference_table = &table;
        object->log = &of.log;
        of.package.add(command, nullptr);
    }
    std::string run(int action, int phase) {
        of.log.clear();
        command->do_execute(action, phase);
        return of.log + std::to_string(command->result);
    }
    std::string check(int action, int phase) {
        of.log.clear();
        command->can_execute(action, phase);
        return of.log + std::to_string(command->result);
    }
    // The object on the machine, and references of this package and of another one.
    void stand(int present, int identical, int shared, int own = 0, int others = 0) {
        object->present = present;
        object->identical = identical;
        object->is_shared = object->ref_count = shared;
        table.set_counter(u("/obj"), u("pkg"), u("1.0"), own);
        table.set_counter(u("/obj"), u("other"), u("2"), others);
    }
    int own() { return table.get_ref_count(u("/obj"), u("pkg"), u("1.0")); }
    int total() { return table.get_ref_count(u("/obj")); }
    int dummy() {
        return table.get_ref_count(u("/obj"), u("@@_dummy_package_for_autoshare_@@"), u("1.0"));
    }

    km_test::scratch_dir dir;
    cm_ref_count_table table{pathname(dir.path().c_str()), 0};
    km_test::tree of;
    fake_object* object = new fake_object;
    Command* command = new Command(object);
};
using adding = setting<cm_add_object>;
using removing = setting<cm_remove_object>;
using auto_sharing = setting<sharing_add>;

} // namespace

TEST(AddObject, PutsInPlaceWhatIsToBeAdded) {
    struct row {
        int phase, present, effective, existing, newer, is_newer, identical, resumed;
        const char* calls;
        int logged, in_commit, effective_then;
    };
    const row cases[] = {
        {1, 0, 1, 1, 0, 0, 0, 0, "add1 0", 1, 0, 1},   {1, 0, 1, 0, 0, 1, 1, 0, "add1 0", 1, 0, 1},
        {1, 0, 0, 1, 0, 0, 0, 0, "skip 0", 0, 0, 0},   {3, 0, 0, 1, 0, 0, 0, 0, "0", 0, 0, 0},
        {1, 1, 1, 1, 0, 0, 0, 0, "add1 0", 1, 0, 1},   {1, 1, 0, 1, 0, 0, 0, 0, "skip 0", 0, 0, 0},
        {1, 1, 1, 0, 0, 0, 0, 0, "skip 0", 0, 0, 0},   {3, 1, 1, 0, 0, 0, 0, 0, "0", 0, 1, 1},
        {1, 1, 1, 1, 0, 1, 0, 0, "skip 0", 0, 0, 1},   {1, 1, 1, 1, 1, 1, 0, 0, "add1 0", 1, 0, 1},
        {1, 1, 1, 1, 0, 0, 1, 0, "skip 0", 0, 0, 1},   {1, 1, 0, 0, 0, 1, 1, 1, "add1 0", 1, 0, 0},
        {3, 1, 1, 1, 0, 0, 0, 0, "add3 0", 1, 1, 1},   {4, 1, 1, 1, 0, 0, 0, 0, "add4 0", 0, 0, 1},
        {5, 1, 1, 1, 0, 0, 0, 0, "add5 0", 1, 1, 1},   {5, 1, 1, 1, 0, 0, 1, 0, "0", 0, 1, 1},
        {2, 1, 1, 1, 0, 0, 1, 0, "add2 0", 1, 0, 1},   {7, 1, 0, 1, 0, 0, 0, 0, "add7 0", 1, 0, 0},
        {11, 1, 1, 1, 0, 0, 0, 0, "add11 0", 1, 0, 1}, {6, 1, 1, 1, 0, 0, 0, 0, "0", 1, 0, 1},
        {10, 1, 1, 1, 0, 0, 0, 0, "0", 1, 0, 1},       {12, 1, 1, 1, 0, 0, 0, 0, "9", 1, 0, 1},
    };
    for (const row& one : cases) {
        adding of;
        of.command->is_effective = one.effective;
        of.command->replace_if_existing = one.existing;
        of.command->replace_if_newer = one.newer;
        of.command->execute_in_commit = 1;
        of.stand(one.present, one.identical, 0);
        of.object->newer = one.is_newer;
        of.object->resumed = one.resumed;
        EXPECT_EQ(of.run(a_execute, one.phase), one.calls) << &one - cases;
        EXPECT_EQ(of.command->to_be_logged, one.logged) << &one - cases;
        EXPECT_EQ(of.command->execute_in_commit, one.in_commit) << &one - cases;
        EXPECT_EQ(of.command->is_effective, one.effective_then) << &one - cases;
    }
    adding counted; // it stays removable by its last owner
    counted.stand(1, 0, 1);
    counted.command->replace_if_existing = 0;
    counted.run(a_execute, p_do);
    EXPECT_EQ(counted.command->is_effective + counted.own(), 2);
    adding failing;
    failing.object->identical = 1;
    failing.object->answer = cm_command::success_retry;
    EXPECT_EQ(failing.run(a_execute, p_do), "skip 6");
}

// An addition counts, also one that found the object in place; a removal gives the count back in
// any case, and takes the object only with the last reference.
TEST(AddObject, CountsItsReferences) {
    const struct {
        int action, phase, shared, present, identical, effective, own, others;
        const char* calls;
        int own_then;
    } cases[] = {
        {1, 1, 1, 0, 0, 1, 0, 0, "add1 0", 1},    {1, 1, 1, 1, 1, 1, 0, 3, "skip 0", 1},
        {1, 3, 1, 1, 0, 1, 0, 0, "add3 0", 1},    {1, 4, 1, 1, 0, 1, 0, 0, "add4 0", 0},
        {1, 1, 0, 1, 0, 1, 0, 3, "add1 0", 0},    {1, 1, 1, 0, 0, 0, 0, 0, "skip 0", 0},
        {1, 1, 1, 1, 0, 0, 0, 0, "skip 0", 1},    {2, 1, 1, 1, 0, 1, 1, 2, "0", 0},
        {2, 1, 1, 1, 0, 1, 1, 0, "remove1 0", 0}, {2, 4, 1, 1, 0, 1, 1, 0, "remove4 0", 1},
        {2, 5, 1, 1, 0, 0, 1, 0, "0", 0},         {2, 1, 1, 1, 0, 1, 0, 0, "remove1 0", 0},
        {2, 1, 1, 1, 0, 1, 0, 1, "0", 0}, // taken out before: what is left is another package's
        {2, 1, 0, 1, 1, 1, 0, 1, "0", 0},         {2, 1, 0, 1, 1, 1, 0, 0, "remove1 0", 0},
        {2, 1, 0, 1, 0, 1, 0, 0, "0", 0},         {2, 2, 1, 1, 0, 1, 1, 1, "remove2 0", 1},
        {2, 11, 1, 1, 0, 1, 1, 0, "9", 1},
    };
    for (const auto& one : cases) {
        adding of;
        of.stand(one.present, one.identical, one.shared, one.own, one.others);
        of.command->is_effective = one.effective;
        EXPECT_EQ(of.run(one.action, one.phase), one.calls) << &one - cases;
        EXPECT_EQ(of.own(), one.own_then) << &one - cases;
        EXPECT_EQ(of.total(), one.own_then + one.others);
    }
    for (const int action : {a_execute, a_reverse}) {
        adding failing; // nothing was done, so nothing is counted
        failing.stand(1, 0, 1, action == a_reverse);
        failing.object->answer = cm_command::failure;
        failing.run(action, p_do);
        EXPECT_EQ(failing.own(), action == a_reverse);
    }
    adding undo; // a backup package counts as the package that it undoes
    undo.of.package.is_backup_package = 1;
    undo.of.package.description = u("main^2^3");
    undo.stand(1, 0, 1);
    undo.run(a_execute, p_do);
    EXPECT_EQ(undo.table.get_ref_count(u("/obj"), u("main"), u("2^3")), 1);
}

TEST(RemoveObject, TakesTheLastReferenceOnly) {
    const struct {
        int action, phase, shared, ref_count, entitled, effective, own, others;
        const char* calls;
        int own_then, in_commit;
    } cases[] = {
        {1, 1, 0, 0, 0, 1, 0, 2, "remove1 0", 0, 0},  {1, 1, 1, -1, 1, 1, 1, 0, "remove1 0", 0, 0},
        {1, 3, 1, -1, 1, 1, 1, 1, "0", 0, 1},         {1, 1, 1, -1, 0, 1, 1, 0, "0", 0, 0},
        {1, 4, 1, -1, 1, 1, 1, 0, "remove4 0", 1, 0}, {1, 1, 1, -1, 1, 0, 1, 0, "0", 1, 0},
        {1, 1, 1, -1, 1, 1, 0, 1, "0", 0, 0}, // the second run of an undo
        {1, 8, 1, -1, 1, 1, 1, 1, "remove8 0", 1, 0}, {1, 11, 1, 0, 1, 1, 1, 0, "0", 1, 0},
        {1, 12, 1, 0, 1, 1, 1, 0, "9", 1, 0},         {2, 1, 0, 0, 0, 1, 0, 0, "0", 0, 0},
        {3, 1, 0, 0, 0, 1, 0, 0, "0", 0, 0},          {3, 3, 0, 0, 0, 1, 0, 0, "9", 0, 0},
        {4, 1, 0, 0, 0, 1, 0, 0, "0", 0, 0},
    };
    for (const auto& one : cases) {
        removing of;
        of.stand(1, 0, one.shared, one.own, one.others);
        of.object->ref_count = one.ref_count;
        of.command->set_undo_replace_if_existing(one.entitled);
        of.command->is_effective = one.effective;
        of.command->execute_in_commit = 1;
        EXPECT_EQ(of.run(one.action, one.phase), one.calls) << &one - cases;
        EXPECT_EQ(of.own(), one.own_then) << &one - cases;
        EXPECT_EQ(of.command->execute_in_commit, one.in_commit) << &one - cases;
    }
}

TEST(ObjectCommands, ChecksAskTheObjectWhereItWouldAct) {
    const struct {
        int action, phase, present, staged, shared, identical, own, others;
        const char *adds, *removes, *add_backup, *remove_backup;
    } cases[] = {
        {1, 1, 0, 0, 0, 0, 0, 0, "check_add1 0", "0", "0", "0"},
        {1, 1, 1, 0, 0, 0, 0, 0, "check_add1 0", "check_remove1 0", "can_read 0", "can_read 0"},
        {1, 2, 1, 0, 0, 1, 0, 0, "check_add2 0", "0", "0", "can_read 0"},
        {1, 2, 1, 1, 1, 1, 0, 1, "check_add2 0", "check_remove2 0", "0", "0"},
        {1, 7, 1, 1, 0, 0, 0, 0, "0", "0", "can_read 0", "can_read 0"},
        {2, 1, 1, 0, 0, 1, 0, 0, "check_remove1 0", "0", "can_read 0", "0"},
        {2, 3, 1, 0, 0, 0, 0, 0, "0", "0", "0", "0"},
        {2, 4, 1, 0, 1, 0, 1, 0, "check_remove4 0", "0", "can_read 0", "0"},
        {2, 1, 1, 0, 1, 0, 1, 1, "0", "0", "0", "0"},
        {2, 2, 0, 0, 0, 0, 0, 0, "check_remove2 0", "0", "0", "0"},
        {3, 1, 1, 0, 0, 0, 0, 0, "0", "0", "0", "0"},
    };
    const auto prove = [](auto& of, const auto& one, const char* wanted, const char* backup) {
        of.stand(one.present, one.identical, one.shared, one.own, one.others);
        of.object->staged = one.staged;
        EXPECT_EQ(of.check(one.action, one.phase), wanted);
        of.of.log.clear();
        of.command->can_backup(one.action);
        EXPECT_EQ(of.of.log + std::to_string(of.command->result), backup);
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        adding add;
        prove(add, one, one.adds, one.add_backup);
        removing remove;
        prove(remove, one, one.removes, one.remove_backup);
    }
    adding failing;
    failing.object->answer = cm_command::failure;
    EXPECT_EQ(failing.check(a_execute, p_do), "check_add1 9");
    failing.command->can_backup(a_execute);
    EXPECT_EQ(km_test::told(failing.of.messages), "199 200 ");
}

TEST(ObjectCommands, VerifySeesWhatStands) {
    const struct {
        int action, phase, present, staged, identical, shared, counted, effective, result;
    } cases[] = {
        {3, 1, 1, 0, 1, 0, 0, 1, 0}, {3, 1, 0, 0, 1, 0, 0, 1, 9}, {3, 1, 1, 0, 0, 0, 0, 1, 9},
        {3, 1, 1, 0, 0, 1, 0, 1, 0}, {3, 1, 1, 0, 0, 0, 2, 1, 0}, {3, 1, 1, 0, 0, 0, 0, 0, 0},
        {3, 2, 0, 1, 1, 0, 0, 1, 0}, {3, 2, 1, 0, 1, 0, 0, 1, 9}, {3, 2, 1, 1, 0, 1, 2, 1, 9},
        {3, 3, 1, 1, 1, 0, 0, 1, 9}, {4, 1, 0, 0, 0, 0, 0, 1, 0}, {4, 1, 1, 0, 0, 0, 0, 1, 9},
        {4, 1, 1, 0, 0, 1, 0, 1, 9}, {4, 1, 1, 0, 0, 0, 1, 1, 0}, {4, 1, 1, 0, 0, 0, 0, 0, 0},
        {4, 2, 1, 1, 0, 0, 0, 1, 0}, {4, 5, 1, 1, 0, 0, 0, 1, 9}, {5, 1, 1, 1, 0, 0, 0, 1, 0}};
    for (const auto& one : cases) {
        adding of;
        of.stand(one.present, one.identical, one.shared, 0, one.counted);
        of.object->staged = one.staged;
        of.command->is_effective = one.effective;
        EXPECT_EQ(of.run(one.action, one.phase), std::to_string(one.result)) << &one - cases;
    }
}

TEST(ObjectCommands, DevicesAreRefused) {
    for (const int support : {0, 1}) {
        adding add;
        removing remove;
        add.of.package.mode = remove.of.package.mode = m_device;
        add.of.package.device_support = remove.of.package.device_support = support;
        EXPECT_EQ(add.run(a_execute, p_do), support ? "add1 0" : "9");
        EXPECT_EQ(add.of.package.device_failures, 1u);
        EXPECT_EQ(add.check(a_execute, p_do), support ? "check_add1 0" : "9");
        EXPECT_EQ(add.of.package.device_failures, support ? 1u : 7u);
        EXPECT_EQ(km_test::told(add.of.messages), support ? "" : "559 ");
        EXPECT_EQ(remove.run(a_execute, p_do), "9");
        EXPECT_EQ(remove.check(a_execute, p_do), "9");
        EXPECT_EQ(km_test::told(remove.of.messages), "559 ");
    }
}

TEST(SharingControl, WhatWasThereBeforeOutlivesAllPackages) {
    const struct {
        int level, declared, phase, present, others;
        int dummy, shared, first_count;
    } cases[] = {{1, 1, 1, 1, 0, 0, 1, 0}, {2, 0, 1, 1, 0, 0, 0, 0}, {2, 1, 1, 1, 0, 1, 1, 1},
                 {4, 0, 1, 1, 0, 1, 1, 1}, {4, 0, 1, 0, 0, 0, 0, 0}, {4, 0, 1, 1, 2, 0, 1, 1},
                 {4, 0, 2, 1, 0, 0, 1, 1}, {4, 0, 2, 0, 0, 0, 0, 0}, {4, 0, 3, 1, 0, 1, 0, 0},
                 {4, 0, 5, 1, 0, 0, 0, 0}};
    for (const auto& one : cases) {
        auto_sharing of;
        of.of.package.sharing_control = one.level;
        of.stand(one.present, 0, one.declared, 0, one.others);
        of.object->staged = 0; // what counts is the place itself
        of.check(a_execute, one.phase);
        EXPECT_EQ(of.dummy(), one.dummy) << &one - cases;
        EXPECT_EQ(of.object->is_shared, one.shared) << &one - cases;
        EXPECT_EQ(of.object->sharing_control_count, one.first_count) << &one - cases;
    }
    for (const int transactional : {0, 1}) {
        auto_sharing of;
        of.of.package.sharing_control = 4;
        of.object->staged = 0;
        for (const int phase : transactional ? std::vector{2, 3} : std::vector{1}) {
            of.check(a_execute, phase);
            of.run(a_execute, phase);
        }
        EXPECT_EQ(of.own() + of.dummy(), 2);
        of.check(a_reverse, p_do);
        EXPECT_EQ(of.run(a_reverse, p_do), "0"); // it stays
        EXPECT_EQ(of.own(), 0);
        EXPECT_EQ(of.dummy(), 1);
    }
    auto_sharing late; // it was made behind the install: now the count is this package's
    late.of.package.sharing_control = 4;
    late.table.set_counter(u("/obj"), u("@@_dummy_package_for_autoshare_@@"), u("1.0"), 1);
    EXPECT_EQ(late.check(a_reverse, p_do), "check_remove1 0");
    EXPECT_EQ(late.dummy(), 0);
    EXPECT_EQ(late.own(), 1);
}

namespace {
// "add" or "remove", count, sharing, replace_if_existing and effect of an undo command.
std::string told(cm_command* undo) {
    const std::unique_ptr<cm_command> owner(undo);
    auto* add = dynamic_cast<cm_add_object*>(undo);
    auto* remove = dynamic_cast<cm_remove_object*>(undo);
    if (!add && !remove)
        return "";
    auto& both = dynamic_cast<cm_object_command&>(*undo);
    EXPECT_EQ(add ? add->replace_if_newer : 5, 5); // as the object of the undo says
    return (add ? "add " : "remove ") + std::to_string(both.object->ref_count) + " " +
           std::to_string(both.object->is_shared) + " " +
           std::to_string(add ? add->replace_if_existing : remove->undo_replace_if_existing) + " " +
           std::to_string(both.is_effective);
}
} // namespace

TEST(Undo, TakesBackWhatTheCommandWouldDo) {
    const struct {
        int action, present, identical, shared, ref_count, counted;
        const char* undo;
    } adds[] = {{2, 0, 0, 0, 0, 0, ""},
                {1, 0, 0, 0, 0, 0, "remove -1 0 1 1"},
                {1, 0, 0, 1, 3, 0, "remove -3 1 1 1"},
                {1, 1, 0, 0, 0, 0, "add -1 0 8 1"},
                {1, 1, 0, 1, 2, 0, "add -2 1 8 1"},
                {1, 1, 1, 0, 0, 4, ""},
                {1, 1, 1, 1, 2, 0, "remove -2 1 0 1"},
                {2, 1, 0, 1, 2, 0, "add 2 1 8 1"},
                {2, 1, 0, 0, 0, 4, "add 1 0 8 1"},
                {2, 1, 0, 0, 0, 0, "add 0 0 8 1"}};
    for (const auto& one : adds) {
        adding of;
        of.stand(one.present, one.identical, one.shared, 0, one.counted);
        of.object->ref_count = one.ref_count;
        of.command->undo_replace_if_existing = 8;
        EXPECT_EQ(told(of.command->get_undo_command(one.action)), one.undo) << &one - adds;
        EXPECT_EQ(of.command->result, cm_command::success);
    }
    const struct {
        int action, present, shared, entitled, own, others;
        const char* undo;
    } removes[] = {{2, 1, 0, 0, 0, 0, ""},
                   {1, 0, 0, 0, 0, 0, ""},
                   {1, 1, 0, 0, 0, 0, "add 0 0 0 1"},
                   {1, 1, 1, 1, 1, 0, "add 1 1 1 1"},
                   {1, 1, 1, 1, 1, 1, "remove 1 1 0 1"},
                   {1, 1, 0, 0, 0, 1, "remove 0 0 0 0"}};
    for (const auto& one : removes) {
        removing of;
        of.stand(one.present, 0, one.shared, one.own, one.others);
        of.object->ref_count = -one.shared;
        of.command->undo_replace_if_existing = one.entitled;
        EXPECT_EQ(told(of.command->get_undo_command(one.action)), one.undo) << &one - removes;
    }
    adding unreadable;
    unreadable.object->answer = cm_command::failure;
    EXPECT_EQ(told(unreadable.command->get_undo_command(a_execute)), "");
    EXPECT_EQ(unreadable.command->result, cm_command::failure);
}

namespace {
struct by_answer : filter_command_algorithm {
    int operator()(cm_object&) override { return answer; }
    int operator()(cm_command&) override { return 1; }
    int answer = 1;
};
} // namespace

TEST(ObjectCommands, NamesTextAndSelection) {
    adding of;
    EXPECT_EQ(of.command->get_log(a_reverse), u("remove /obj"));
    of.command->preview_selected = 1;
    EXPECT_EQ(of.command->get_name(), u("add shown"));
    of.command->skip_data();
    of.of.package.package_mask = 2; // a user's pass gets the data of its commands only
    of.command->skip_data();
    EXPECT_EQ(of.of.log, "skip ");
    for (const char* stanza : {"", "add_win_registry_key", "add_win_nt_service"}) {
        km_test::fake_importer from({{"is_shared", "1"}, {"remove_if_modified", "0"}});
        from.stanza = stanza;
        adding read;
        read.command->import(from);
        EXPECT_EQ(from.asked.find("replace_if_existing") == std::string::npos,
                  from.stanza == "add_win_nt_service");
        EXPECT_EQ(from.asked.find("replace_if_newer") == std::string::npos, *stanza != 0);
        EXPECT_EQ(read.object->ref_count, 1); // else it would never be counted
    }
    by_answer filter;
    for (const auto& [answer, condition, evaluate, kept] :
         {std::tuple(1, "", 1, 1), {1, "1 == 2", 1, 0}, {1, "1 == 2", 0, 1}, {2, "", 0, 0}}) {
        adding one;
        one.command->condition = u(condition);
        one.command->replace_if_existing = 0;
        filter.answer = answer;
        EXPECT_EQ(one.command->select_commands(filter, evaluate), kept);
        EXPECT_EQ(one.command->replace_if_existing, kept);
        EXPECT_EQ(one.of.package.cm_composite_command::select_commands(filter, evaluate), kept);
    }
}

TEST(ObjectCommands, WithoutAnObjectTheyFail) {
    cm_add_object add;
    cm_remove_object remove;
    for (cm_command* command : std::initializer_list<cm_command*>{&add, &remove}) {
        command->can_execute(a_execute, p_do);
        EXPECT_EQ(command->result, cm_command::failure);
        command->skip_data();
        EXPECT_EQ(command->result, cm_command::success);
        command->do_execute(a_reverse, p_do_cleanup);
        EXPECT_EQ(command->result, cm_command::failure);
        EXPECT_EQ(command->get_undo_command(a_execute), nullptr);
    }
}
