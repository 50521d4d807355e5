// What is doubtful in a definition.
#include "definition_lint.h"

#include "definition_fixture.h"

#include "support/has.h"

using km_test::Definition;

namespace {
class Lint : public Definition {
  protected:
    // Numbers of the messages of the lint of a package, in order.
    std::string lint(const std::string& body) {
        messages_.reset();
        const km::pathname path(
            scratch_.write("l.spd", "kmspd 1.0\npackage {\nname = p version = 1\n" + body + "}\n")
                .c_str());
        const int good = lint_definition(&path, base_.c_str(), &messages_);
        std::string all;
        for (int i = 0; i < messages_.get_count(); ++i)
            all +=
                std::to_string(messages_.get_message()->entries[static_cast<size_t>(i)].key) + " ";
        EXPECT_EQ(good != 0, all.empty());
        return all;
    }

    std::string base_;
};
} // namespace

TEST_F(Lint, TellsWhatIsDoubtfulAtItsPlace) {
    const auto key = [](long number) { return std::to_string(number) + " "; };
    const std::string circle = key(km::im_circle), variable = key(km::im_no_variable),
                      put_back = key(km::im_not_put_back), stays = key(km::im_program_stays),
                      no_source = key(km::im_no_source), bad_source = key(km::im_bad_source),
                      no_finding = key(km::im_no_finding);
    scratch_.write("there", "x");
    const struct {
        std::string body, keys, told;
    } cases[] = {
        {"", "", ""},
        {"title = \"$(os_name) $(operation_name) $(port)\"\ndefault_variables { port = 1 }\n", "",
         ""},
        {"title = $(prt)\ndefault_variables { port = 1 }\n", variable,
         ":4:9: Nothing defines the variable 'prt'; default_variables could. Did you mean 'port'? "
         "(undefined-variable)\n"
         "    title = $(prt)\n            ^"},
        {"title = \"$(a) $(b) $(a)$(a$(b))\"\n", variable + variable, "variable 'b'"},
        {"default_variables { a = $(b) b = $(a) c = x$(b) d = $(e) e = 1 }\n",
         circle + circle + circle, ":4:21: The variable 'a' has no value"},
        {"add_file { path = /f source = there condition = \"$(none) == 1\" }\n", variable,
         ":4:49: "},
        {"dependency = \"(1 == 1\"\n", key(km::im_no_condition), ":4:14: 'dependency' is no"},
        {"dependency = \"$(installed_software) CONTAINS x\"\n", "", ""},
        {"add_file { path = /f source = there condition = \"1 ==\" }\ntitle = $(x)\n",
         key(km::im_no_condition), ":4:49: 'condition' is no"},
        {"title = $(x)\ntitel = y\n", key(km::im_unknown_attribute), ""}, // faults come first
        {"remove_file { path = /f }\nadd_file { path = /g source = there }\nadd_directory { path = "
         "/f }\n",
         put_back, ":4:1: When the package is removed, nothing puts back"},
        {"generic_container { add_file { path = /f source = there } }\nremove_file { path = /f "
         "mode = 1 }\n",
         "", ""},
        {"user_program { install_path = /p remove_path = /p }\n", "", ""},
        {"generic_container { user_program { install_path = /p } }\n", stays,
         ":4:21: When the package is removed, nothing takes back"},
        {"add_file { path = /f }\n", no_source, ":4:1: 'add_file' names no source"},
        {"add_kept_file { path = /f source = $(d)/no }\ndefault_variables { d = sub }\n",
         bad_source, "/sub/no' cannot be packed: No such file"},
        {"add_file { path = /f source = $(from_outside)/no }\n", variable, ""},
        {"add_line { path = /f text = x }\nadd_file { path = /f source = there }\n",
         key(km::im_text_before), ":4:1: 'add_file' in line 5 replaces the file"},
        {"add_file { path = /f source = there }\nadd_line { path = /f text = x }\n", "", ""},
        {"# lint: allow undefined-variable\ntitle = $(x)\n", "", ""},
        {"title = $(x) # lint: allow undefined-variable\ndescription = $(x)\n", variable, ":5:"},
        {"# lint: allow no-source, undefined-variable\nadd_file {\npath = $(x)\n}\n"
         "add_file { path = /f }\n",
         no_source, ":8:1"},
        {"# Lint: allow no-source\n# lint: deny\nadd_file { path = /f }\n", no_source, ""},
        {"# lint: allow no-sorce\nadd_file { path = /f }\n", no_finding + no_source,
         "has no finding 'no-sorce' that could be allowed. Did you mean 'no-source'?"},
        {"# lint: allow\n", no_finding, ""},
        {"title = \"# lint: allow no-source\"\nadd_file { path = /f }\n", no_source, ""},
        {"remove_link { path = /l target = a }\nadd_link { path = /l target = b }\n", put_back, ""},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(lint(one.body), one.keys) << one.body << told();
        EXPECT_HAS(told(), one.told) << one.body << told();
    }
}

TEST_F(Lint, EndsOnHostileValues) {
    std::string nested, many, same, doubled;
    for (int i = 0; i < 20000; ++i) {
        nested += "$(";
        many += "$(v" + std::to_string(i) + ")";
        same += "$(os_name)$(";
    }
    for (int i = 0; i < 60; ++i) {
        const std::string next = "$(d" + std::to_string(i + 1) + ")";
        doubled += "d" + std::to_string(i) + " = \"" + next + next + "\"\n";
    }
    EXPECT_EQ(lint("title = \"" + nested + "\"\n"), "");
    EXPECT_EQ(lint("title = \"" + same + "\"\n"), "");
    EXPECT_EQ(lint("default_variables { " + doubled + "d60 = x }\ntitle = $(d0)\n"), "");
    EXPECT_EQ(messages_.get_count(), 0);
    lint("title = \"" + many + "\"\n");
    EXPECT_EQ(messages_.get_count(), km::definition_problems::most + 1);
    lint("title = \"" + nested + "x" + std::string(20000, ')') + "\"\n");
    EXPECT_EQ(messages_.get_count(), 1);
}
