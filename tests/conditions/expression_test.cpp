// Conditions: their grammar, their values and their errors.
#include "expression.h"
#include "variable_list.h"

#include "support/has.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

using km::condition;
using km::expression;
using km::operator_t;
using km::ustring;
using km::value_t;

namespace {

// The number of the message in `error`, "" for none.
std::string number_of(const ustring& error) {
    static const struct {
        const char* number;
        const char* text;
    } texts[] = {{"284", "Syntax Error: Operator expected."},
                 {"285", "Syntax Error: Expected operator and found '"},
                 {"286", "Syntax Error: Unmatched closing parenthesis."},
                 {"287", "Syntax Error: Unmatched opening parenthesis."},
                 {"288", "Syntax Error: Expected operand and found operator."},
                 {"289", "Evaluation Error: Incompatible operand type."},
                 {"290", "Evaluation Error: The result of the condition is not a Boolean value."}};
    const std::string words = error.mbcs_str();
    for (const auto& one : texts)
        if (km_test::has(words, one.text))
            return one.number;
    return words;
}

// "true", "false" or the number of the error.
std::string outcome(const std::string& text) {
    condition one(ustring(text.c_str()));
    const int holds = one.evaluate();
    if (holds)
        return one.error.empty() ? "true" : "true with an error";
    return one.error.empty() ? "false" : number_of(one.error);
}

class Conditions : public testing::Test {
  protected:
    void SetUp() override {
        for (const auto& [name, value] : {
                 std::pair{"ten", "10"},
                 {"word", "abc"},
                 {"yes", "true"},
                 {"dots", "1.2.3"},
                 {"two words", "2"},
                 {"a - 1", "minus"},
                 {"quote", "say \"x\""},
                 {"items", "one; two ;three"},
                 {"installed_software",
                  "#installed_software#tool^1.10;tool^0.9;net.lib^2.0;base^;old.3;"},
             })
            list_.set_value(ustring(name), ustring(value));
        km::variable_list::set_chain(km::variable_list::for_decoder, &list_);
    }
    km::variable_list list_;
};

void expect(const char* wanted, std::initializer_list<const char*> texts) {
    for (const char* text : texts)
        EXPECT_EQ(outcome(text), wanted) << text;
}

} // namespace

TEST_F(Conditions, GroupByThePriorityOfTheirOperators) {
    expect("true",
           {"", "true OR true AND false", "NOT NOT true", "NOT true == false",
            "NOT (true == false)", "false == NOT true", "1 < 2 == 4 > 3", "((((true))))", "2 > = 2",
            "2>=2 AND 2<=2 AND 1!=2 AND 2==2", "'a/b' == \"a/b\"", "c:.x == 'c:.x'"});
    expect("false", {"(true OR true) AND false", "false == (2 > 1)"});
}

TEST_F(Conditions, TellTheFirstSyntaxError) {
    expect("284", {"true 1", "true 'x'", "1.2.3 == 1", "$(5) == 1"});
    expect("285", {"a b", ")", "( )", "a = b", "a == -1", "$x == 1", "$ NOT true", "$((true)",
                   "$($(ten)) > 1", "a not b", "a == AND", "a/b == 1"});
    expect("286", {"a )", "a ) b"});
    expect("287", {"(", "(a", "(a ==", "$(ten", "$("});
    expect("288", {"a ==", "NOT", "   "});
    condition one(ustring("true => false"));
    EXPECT_EQ(one.infix2postfix(), 0);
    EXPECT_HAS(one.error.mbcs_str(), "found '=>'");
    one.infix = u"true";
    EXPECT_EQ(one.infix2postfix(), 1);
    EXPECT_TRUE(one.error.empty()) << "an error does not outlive its text";
}

TEST_F(Conditions, WriteTheirParsedForm) {
    for (const auto& [infix, postfix] : {
             std::pair{"$(a) == \"b\" AND NOT $(c)", "$(a) \"b\" == $(c) {NOT AND "},
             {"a OR b AND c", "\"a\" \"b\" \"c\" AND OR "},
             {"1 < 2 < 1.5", "1.000000 2.000000 < 1.500000 < "},
             {"true == (b >= 'c\"d')", "true \"b\" 'c\"d' >= == "},
             {"$(two words) == $(a-1)", "$(two words) $(a - 1) == "},
         }) {
        expression one{ustring(infix)};
        EXPECT_EQ(one.infix2postfix(), 1);
        EXPECT_STREQ(one.postfix.mbcs_str(), postfix);
    }
}

TEST_F(Conditions, CompareByTheTypesOfTheOperands) {
    expect("true", {"10 > 9", "'9.5' < 10 AND 10 > '9.5'", "0 == 'x' AND 'x' == 0", "5 != '5'",
                    "'name.txt' LIKE '*.t?t'", "'a; b ;c' CONTAINS 'b'", "'x' != 'X'"});
    expect("false", {"'10' > '9'", "5 == '5'", "'Name' LIKE 'n*'", "'a;bc' CONTAINS 'b'"});
    expect("289", {"true == 1", "'true' == true", "true > false", "1 AND true", "NOT 1",
                   "1 LIKE '*'", "'b' CONTAINS 1"});
    expect("290", {"5", "'x'"});
}

TEST_F(Conditions, ResolveVariables) {
    expect("true", {"$(ten) > 9", "$(ten) == 10.0", "$(word) < 5", "$(yes)", "NOT $(yes) == false",
                    "$(dots) == '1.2.3'", "$( two words) == 2", "$(a-1) == minus",
                    "$(quote) == 'say \"x\"'", "$(items) CONTAINS two", "'v$(ten)' == 'v10'"});
    expect("false", {"$(word) > 5", "$(undefined) == 'x'", "$(undefined) != 'x'",
                     "$(undefined) OR true", "$(word) == true"});
    expect("289", {"NOT $(undefined)", "NOT $(word)"});
    expect("290", {"$(undefined)"});
    expression::set_variable_list(nullptr);
    EXPECT_EQ(outcome("$(yes)"), "true") << "a new expression asks the decoder's chain again";
    condition one(ustring("$(yes)"));
    expression::set_variable_list(nullptr);
    EXPECT_EQ(one.evaluate(), 0);
    EXPECT_EQ(number_of(one.error), "290");
}

TEST_F(Conditions, AskTheInstalledSoftware) {
    expect("true",
           {"$(installed_software) CONTAINS 'tool^1.10'", "$(installed_software) == 'tool.1.10'",
            "$(installed_software) == 'old^3'", "$(installed_software) != 'tool^1.1'",
            "$(installed_software) >= 'tool^1.9'", "$(installed_software) < 'tool^1.0'",
            "$(installed_software) CONTAINS base", "$(installed_software) LIKE 'net.*^2.?'",
            "$(installed_software) LIKE 'to*^1.*'"});
    expect("false", {"$(installed_software) > 'tool^1.10'", "$(installed_software) >= 'too^1'",
                     "$(installed_software) CONTAINS tool",
                     "$(installed_software) == 'net.lib.2.0'", "$(installed_software) LIKE 'to*'",
                     "'tool^1.10' == $(installed_software)", "$(installed_software) == 1"});
}

TEST_F(Conditions, TellEachOperatorThatWasEvaluated) {
    static std::string seen;
    seen.clear();
    condition one(ustring("NOT $(yes) OR $(ten) > 5.5"));
    EXPECT_EQ(one.evaluate([](const value_t& left, const operator_t& op, const value_t* right,
                              const value_t& result) {
        seen += (left.to_string() + op.to_string() + (right ? right->to_string() : ustring()) +
                 result.to_string())
                    .mbcs_str();
        seen += "| ";
    }),
              1);
    EXPECT_EQ(seen, "true {NOT false | 10.000000 > 5.500000 true | false OR true true | ");
}

TEST(Operators, AreLookedUpByNameAndKind) {
    EXPECT_TRUE(operator_t::lookup_operator(u"(", operator_t::unary) ==
                operator_t::open_parenthesis);
    EXPECT_TRUE(operator_t::lookup_operator(u")", operator_t::unary) == operator_t::null);
    EXPECT_TRUE(operator_t::lookup_operator(u"and", operator_t::binary) == operator_t::null);
    operator_t::terminate_statics();
    EXPECT_EQ(operator_t::lookup_operator(u"AND", operator_t::binary).stack_priority, 10);
}

TEST_F(Conditions, EndInALinearTimeForHostileTexts) {
    const auto repeated = [](const std::string& part, int times) {
        std::string all;
        for (int i = 0; i < times; ++i)
            all += part;
        return all;
    };
    constexpr int many = 50000;
    EXPECT_EQ(outcome(repeated("(", many)), "287");
    EXPECT_EQ(outcome(repeated("(", many) + "true" + repeated(")", many)), "true");
    EXPECT_EQ(outcome(repeated("NOT ", many) + "true"), "true");
    EXPECT_EQ(outcome("true" + repeated(" AND true", many / 4)), "true");
    EXPECT_EQ(outcome("a" + repeated(")", many)), "286");
    EXPECT_EQ(outcome(repeated("=", many)), "285");
    EXPECT_EQ(outcome("$(" + repeated("a ( ", many)), "287");
    EXPECT_EQ(outcome(repeated("$(", many)), "285");
    EXPECT_EQ(outcome("'" + repeated("x", many)), "290");
    EXPECT_EQ(outcome("'" + repeated("$(", many) + "' == x"), "false");
    EXPECT_EQ(outcome("'" + repeated("$(", many) + ")' == x"), "false");
    EXPECT_EQ(outcome("'" + repeated("a", many) + "' LIKE '*" + repeated("a", many / 2) + "b*'"),
              "false");
    EXPECT_EQ(outcome(repeated("9", many) + " > 1"), "true");
}
