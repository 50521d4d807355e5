// Commands: when one is run, how one is found and replaced, its coded and text form.
#include "command.h"

#include "catalog.h"
#include "object_command.h"
#include "restart.h"
#include "variable_list.h"

#include "support/coded.h"
#include "support/fake_definition.h"
#include "support/recording_command.h"

#include <gtest/gtest.h>

using namespace km;
using km_test::decoded;
using km_test::encoded;
using km_test::recording_command;
using km_test::tree;
using km_test::u;

namespace {

// Passes for an object of a class in a stream, with fields of its own.
class forged : public uncoded<codable> {
  public:
    forged(const char* of_class, std::function<void(encoder&)> fields)
        : name_(std::string("com.ombrel.sd.cmObjects.") + of_class), fields_(std::move(fields)) {}
    codable* clone() const override { return new forged(*this); }
    const char* codable_name() const override { return name_.c_str(); }
    void encode_object(encoder& to) const override { fields_(to); }

  private:
    std::string name_;
    std::function<void(encoder&)> fields_;
};

} // namespace

TEST(Command, IsRunByThisTable) {
    const struct {
        int in_commit, scope, mask, connected, package_executed, executed, result, runs;
    } cases[] = {{0, 1, 1, 0, 0, 0, 0, 1}, {0, 1, 1, 0, 0, 1, 0, 0}, {0, 1, 1, 0, 1, 1, 0, 1},
                 {0, 1, 1, 0, 1, 0, 0, 0}, {0, 1, 1, 0, 1, 0, 2, 1}, {0, 1, 1, 0, 1, 0, 4, 1},
                 {0, 1, 1, 0, 1, 0, 3, 0}, {1, 1, 1, 0, 0, 0, 0, 0}, {1, 1, 1, 0, 1, 1, 0, 0},
                 {0, 2, 1, 0, 0, 0, 0, 1}, {0, 2, 1, 1, 0, 0, 0, 0}, {0, 1, 2, 0, 0, 0, 0, 0},
                 {0, 1, 2, 1, 0, 0, 0, 0}, {0, 2, 2, 1, 0, 0, 0, 1}, {0, 1, 3, 1, 1, 1, 9, 1}};
    for (const auto& one : cases) {
        tree of("a");
        of.package.executed = one.package_executed;
        of.package.package_mask = one.mask;
        of.package.connected = one.connected;
        of[0].execute_in_commit = one.in_commit;
        of[0].scope = one.scope;
        of[0].executed = one.executed;
        of[0].result = static_cast<cm_result>(one.result);
        EXPECT_EQ(of[0].is_to_be_executed(), one.runs) << &one - cases;
    }
}

TEST(Command, ResultsAndMessages) {
    const struct {
        int result;
        const char *text, *can, *backup;
    } cases[] = {{0, "success", "", ""},
                 {7, "warning", "", ""},
                 {8, "temporary_failure", "", "200 "},
                 {11, "failure_with_info", "199 ", "199 200 "},
                 {12, "", "199 ", "199 200 "}};
    for (const auto& one : cases) {
        tree of("a");
        of[0].result = static_cast<cm_result>(one.result);
        EXPECT_EQ(of[0].map_result(1, 1), u(one.text));
        of[0].iserr_can_execute();
        EXPECT_EQ(km_test::told(of.messages), one.can);
        of[0].iserr_can_backup();
        EXPECT_EQ(km_test::told(of.messages), one.backup);
    }
}

TEST(Command, AddToPackageTakesThePlaceOfItsName) {
    tree from("b c"), into("a b d");
    auto& inner = into.inner(1);
    into.add(inner, "c");
    const auto replaced = into[1].command_index;
    from.package.add_to_package(&into.package);
    tree("e").package.add_to_package(&into.package);
    EXPECT_EQ(into.package.get_children().size(), 5);
    EXPECT_EQ(into.package.get_command_executed(replaced), nullptr);
    EXPECT_EQ(into.package.find(u("?"), 1), nullptr); // no pattern
    auto* stored = into.package.find(u("c"), 1);
    EXPECT_EQ(stored->get_command_index(), from[1].get_command_index());
    EXPECT_EQ(stored->get_package(), &into.package);
    std::string order;
    for (list_iterator at(into.package.get_children()); at.hasMoreElements();)
        order += dynamic_cast<cm_command&>(*at.nextElement()).get_name().mbcs_str();
    EXPECT_EQ(order, "abde");
}

TEST(CommandCoding, ConditionsKeepTheirReferences) {
    km_test::engine_home home;
    variable_list variables;
    variables.set_value(u("x"), u("7"));
    cm_composite_command outer(0);
    outer.condition = u("$(x) == 7");
    outer.caption = u("is $(x)");
    auto* child = new restart;
    child->executed = child->execute_in_commit = 1;
    child->result = cm_command::success_reboot_after_reexecute;
    child->scope = 2;
    child->timeout = 90;
    outer.add(child, nullptr);
    outer.add(new cm_add_object, nullptr);
    outer.result = cm_command::warning;
    const std::string bytes = encoded(outer);
    int status = 0;
    variable_list::set_chain(variable_list::for_decoder, &variables);
    const auto object = decoded(bytes, &status, &variables);
    variable_list::set_chain(variable_list::for_decoder, nullptr);
    auto* read = dynamic_cast<cm_composite_command*>(object.get());
    ASSERT_TRUE(read);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read->condition, outer.condition);
    EXPECT_EQ(read->caption, u("is 7"));
    auto& first = dynamic_cast<restart&>(*read->get_children().front());
    EXPECT_EQ(first.command_index, child->command_index);
    EXPECT_EQ(first.timeout, 90);
    read->caption = outer.caption;
    EXPECT_EQ(encoded(*read), bytes);
}

// Nothing is owned twice, nothing leaks, and no depth exhausts the stack.
TEST(CommandCoding, HostileStreamsAreRefused) {
    km_test::engine_home home;
    const restart leaf;
    const cm_catalog_key no_command(u("a"), u("1"));
    const cm_package stranger;
    const auto children = [](std::initializer_list<const codable*> elements) {
        return [elements = std::vector<const codable*>(elements)](encoder& to) {
            to.encode_integer_field(0, 1);
            vector all;
            all.set_owns(0);
            for (const auto* one : elements)
                all.push_back(const_cast<codable*>(one));
            vector_iterator at(&all);
            to.encode_iterator(201, &at);
        };
    };
    const auto object_field = [](int id, const codable& of) {
        return [id, &of](encoder& to) { to.encode_object_field(id, &of); };
    };
    const forged cases[] = {{"CmCompositeCommand", children({&leaf, &no_command})},
                            {"CmCompositeCommand", children({&leaf, &leaf})},
                            {"CmAddObject", object_field(200, leaf)},
                            {"CmRemoveObject", object_field(200, no_command)},
                            {"CmRestart", object_field(100, stranger)},
                            {"CmRestart", object_field(100, no_command)}};
    for (const auto& one : cases) {
        int status = 0;
        const auto object = decoded(encoded(one), &status);
        EXPECT_EQ(status, 2) << &one - cases;
    }
    int status = 0;
    decoded(encoded(forged("CmCompositeCommand", children({&leaf}))), &status);
    EXPECT_EQ(status, 0);
    // The composite itself as its child.
    std::function<void(encoder&)> cycle;
    const forged self("CmCompositeCommand", [&cycle](encoder& to) { cycle(to); });
    cycle = children({&self});
    decoded(encoded(self), &status);
    EXPECT_EQ(status, 2);
    auto* deep = new cm_composite_command;
    for (int i = 0; i < 600; ++i) {
        auto* outer = new cm_composite_command;
        outer->add(deep, nullptr);
        deep = outer;
    }
    const std::unique_ptr<cm_command> owner(deep);
    decoded(encoded(*deep), &status);
    EXPECT_EQ(status, 2);
}

TEST(CommandText, ImportTakesConditionAndScope) {
    for (const auto& [text, per_user, flags] :
         {std::tuple("", "0", 0), {"$(a) == 1", "1", 0}, {"1 == ", "0", 0x30000}}) {
        tree of("a");
        km_test::fake_importer from({{"condition", text}, {"is_per_user", per_user}});
        from.messages = &of.messages;
        of[0].import(from);
        EXPECT_EQ(of[0].condition, u(text)); // as written, also if it does not parse
        EXPECT_EQ(of[0].scope, *per_user == '1' ? 2 : 1);
        EXPECT_EQ(from.flags, flags);
        EXPECT_EQ(km_test::told(of.messages), flags ? "185 " : "");
    }
}

TEST(CommandText, AMixOfKindsIsToldAndKept) {
    tree of, fresh;
    for (cm_package* root : {&of.package, &fresh.package}) { // each tree begins anew
        km_test::fake_importer from;
        from.messages = &of.messages;
        for (const char* kind : {"x.CmGenericContainer", "x.CmFile", "x.CmDeviceFile"}) {
            if (root == &fresh.package && from.commands.size() == 2)
                break;
            auto* command = new recording_command("a", of.log);
            command->kind = kind;
            from.commands.push_back(command);
        }
        root->cm_composite_command::import(from);
        EXPECT_EQ(from.flags, root == &of.package ? 0x10000 : 0);
        EXPECT_EQ(from.container, nullptr);
    }
    EXPECT_EQ(of.package.get_children().size(), 3);
    EXPECT_EQ(km_test::told(of.messages), "558 ");
}
