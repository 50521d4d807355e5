// The rules file: what is read, what is asked of it, and what a wrong or hostile file gets.
#include "pair.h"
#include "rule_values.h"
#include "rules_checker.h"

#include "support/sanitized.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

using namespace km;
using type = attribute_descriptor;

namespace {

ustring u(const std::string& text) { return ustring(text.c_str()); }

// The items of a list, each behind a '|'.
std::string items(const vector& list) {
    std::string all;
    for (int i = 0; i < list.size(); ++i)
        if (const auto* text = list.at<ustring>(i))
            all += std::string("|") + text->mbcs_str();
        else if (const auto* one = list.at<pair>(i))
            all += std::string("|") + one->get_key().mbcs_str() + ":" + one->get_value().mbcs_str();
    return all;
}

struct Rules : testing::Test {
    int read(const std::string& text) {
        return rules.initialize(pathname(dir.write("rules.spr", text).c_str()));
    }
    // A second reader, so that nothing of the first is left.
    std::string outcome(const std::string& text) {
        rules_checker fresh;
        const int done = fresh.initialize(pathname(dir.write("other.spr", text).c_str()));
        return std::to_string(done) + " " + std::to_string(fresh.error_line);
    }
    // The default of an attribute, "-" without one.
    std::string found(const char* stanza, const char* attribute) {
        const auto* one = rules.get_attribute_descriptor(u(attribute), u(stanza));
        return one ? one->default_value.mbcs_str() : "-";
    }
    km_test::scratch_dir dir;
    rules_checker rules;
};

const std::string head = "versions = '1.0:1.1'\nsignature = 'kmspd *** of ***'\n";
const std::string whole = head + R"(# a comment { } =
package { context = root builder = CmPackage inherits = object,named
  undoable { type = single_choice choice = 'n:0,yes,,maybe:2:3' default = yes }
  bits { type = multi_choice choice = a:1,b:2,c:8 default = '11' mandatory = y }
  level { type = range range = '-5,10' default = '-5,10' mandatory = n }
  mode { type = character_mask mask = r,w,x }
  log { type = object object_builder = CmLog validation_rule = "two
lines" }
  log { type = string }
  early { default = anything type = boolean }
}
file { context = add,both }
file { context = remove }
file { builder = Lost }
lonely { inherits = package }
lonely { builder = Second }
)";

} // namespace

TEST_F(Rules, AWholeFileIsRead) {
    ASSERT_EQ(read(whole + "} what follows { is not = looked at"), 1) << rules.error_line;
    EXPECT_EQ(rules.error_line, 0);
    EXPECT_EQ(rules.root, u"package");
    EXPECT_EQ(rules.versions, u"1.0:1.1");
    EXPECT_EQ(rules.stanzas.size(), 4); // what comes again without a context counts for nothing
    ustring name = u"package";
    const auto* stanza = rules.get_stanza_descriptor(name, u"");
    ASSERT_TRUE(stanza);
    EXPECT_EQ(stanza->builder, u"CmPackage");
    EXPECT_EQ(items(stanza->inherits), "|object|named");
    const struct {
        const char* name;
        int type, mandatory;
        const char *value, *values, *rule, *builder;
    } cases[] = {{"undoable", type::t_single_choice, 0, "yes", "|n:0|yes:yes|maybe:2:3", "", ""},
                 {"bits", type::t_multi_choice, 1, "11", "|a:1|b:2|c:8", "", ""},
                 {"level", type::t_range, 0, "-5,10", "|-5|10", "", ""},
                 {"mode", type::t_character_mask, 0, "", "|r|w|x", "", ""},
                 {"log", type::t_object, 0, "", "", "two\nlines", "CmLog"},
                 {"early", type::t_boolean, 0, "anything", "", "", ""}};
    EXPECT_EQ(stanza->attributes.size(), 6);
    for (const auto& one : cases) {
        const auto* is = stanza->attributes.get_as<attribute_descriptor>(u(one.name));
        ASSERT_TRUE(is) << one.name;
        EXPECT_EQ(is->type, one.type) << one.name;
        EXPECT_EQ(is->mandatory, one.mandatory) << one.name;
        EXPECT_EQ(is->default_value, u(one.value)) << one.name;
        EXPECT_EQ(items(is->values), one.values) << one.name;
        EXPECT_EQ(is->validation_rule, u(one.rule)) << one.name;
        EXPECT_EQ(is->object_builder, u(one.builder)) << one.name;
    }
    const auto* choice = stanza->attributes.get_as<attribute_descriptor>(u("undoable"));
    ustring text = u"kept";
    EXPECT_EQ(choice->find_choice_by_key(u"2:3", text), 0);
    EXPECT_EQ(choice->find_choice_by_value(text, u"n"), 0);
    EXPECT_EQ(text, u"kept");
    EXPECT_EQ(choice->find_choice_by_key(u"maybe", text), 1);
    EXPECT_EQ(text, u"2:3");
    EXPECT_EQ(choice->find_choice_by_value(text, u"0"), 1);
    EXPECT_EQ(text, u"n");
    const std::unique_ptr<codable> copy(stanza->clone());
    EXPECT_EQ(dynamic_cast<stanza_descriptor&>(*copy).attributes.size(), 6);
}

TEST_F(Rules, AStanzaOfSeveralContextsHasSeveralDescriptors) {
    ASSERT_EQ(read(whole), 1);
    const struct {
        const char *name, *context, *key, *first;
    } cases[] = {{"file", "add", "file", "|add|both"},
                 {"file", "both", "file", "|add|both"},
                 {"file", "remove", "file.remove", "|remove"},
                 {"file", "elsewhere", "file", "|add|both"},
                 {"lonely", "anywhere", "lonely", ""}};
    for (const auto& one : cases) {
        ustring name = u(one.name);
        const auto* stanza = rules.get_stanza_descriptor(name, u(one.context));
        ASSERT_TRUE(stanza) << one.context;
        EXPECT_EQ(name, u(one.key)) << one.context;
        EXPECT_EQ(items(stanza->context), one.first) << one.context;
        EXPECT_EQ(stanza->builder, u"") << one.context;
    }
    ustring name = u"nobody";
    EXPECT_EQ(rules.get_stanza_descriptor(name, u"remove"), nullptr);
}

TEST_F(Rules, AttributesAreInheritedDepthFirst) {
    const auto stanza = [](const std::string& name, const std::string& from,
                           const std::string& attributes) {
        std::string text = name + " { inherits = '" + from + "'\n";
        for (const char one : attributes)
            text += std::string(1, one) + " { default = " + name + one + " }\n";
        return text + "}\n";
    };
    std::string text = head + stanza("a", "b,c,nobody", "v") + stanza("b", "d", "vw") +
                       stanza("c", "a,c", "wxy") + stanza("d", "a", "xz");
    const int length = 10000; // a chain that no stack of calls would bear, each link there twice
    for (int i = 0; i < length; ++i)
        text += stanza("l" + std::to_string(i),
                       "l" + std::to_string(i + 1) + ",l" + std::to_string(i + 1), "");
    ASSERT_EQ(read(text + stanza("l" + std::to_string(length), "d", "q")), 1);
    const struct {
        const char *stanza, *attribute, *value;
    } cases[] = {{"a", "v", "av"},  {"a", "w", "bw"},    {"a", "x", "dx"},  {"a", "y", "cy"},
                 {"a", "z", "dz"},  {"c", "x", "cx"},    {"a", "q", "-"},   {"d", "y", "cy"},
                 {"l0", "z", "dz"}, {"l0", "none", "-"}, {"none", "v", "-"}};
    for (const auto& one : cases)
        EXPECT_EQ(found(one.stanza, one.attribute), one.value) << one.stanza << one.attribute;
}

TEST_F(Rules, VersionsAndTheSignature) {
    ASSERT_EQ(read(head), 1);
    ustring version = u"1.2";
    EXPECT_EQ(rules.validate_version(version), 0);
    EXPECT_EQ(version, u"1.1");
    version = u"1.0";
    EXPECT_EQ(rules.validate_version(version), 1);
    EXPECT_EQ(rules.signature, u"kmspd 1.0 of ***"); // once
    ASSERT_EQ(read("versions=':::' signature=x"), 1);
    EXPECT_EQ(rules.signature, u"x"); // nothing of the former file is left
    EXPECT_EQ(rules.validate_version(version), 0);
    EXPECT_EQ(version, u"1.0");
}

TEST_F(Rules, AFaultHasItsLine) {
    const auto attribute = [](const std::string& lines) {
        return head + "s {\na {\n" + lines + "\n}\n}\n";
    };
    const struct {
        std::string text;
        const char* outcome;
    } cases[] = {
        {"", "0 1"},
        {"\n\nsignature = x", "0 3"},
        {"version = '1.0'", "0 1"},
        {"versions '1.0'", "0 1"},
        {"versions = '10'\nsignature = x", "0 1"},
        {"versions = 1.0\nsignature = x", "0 1"}, // an unquoted dot ends the word
        {"versions = '1.0'\nversions = '1.0'", "0 2"},
        {"versions = '1.0'\nsignature\n{", "0 3"},
        {"versions = '1.0' signature = =", "1 0"}, // what is no text counts as the empty one
        {head + "s\n= x", "0 4"},
        {head + "s", "0 3"},
        {head + "s {", "0 3"},
        {head + "s {\n\n= }", "0 5"},
        {head + "s {\na b }", "0 4"},
        {head + "s {\ncontent = x }", "0 4"},
        {head + "s {\ncontext = } builder = }", "0 4"}, // eats the bracket
        {head + "s { builder = x }\r\nt\r\n}", "0 5"},
        {attribute("type = strings"), "0 5"},
        {attribute("mandatory = yes"), "0 5"},
        {attribute("typ = string"), "0 5"},
        {attribute("type string"), "0 5"},
        {attribute("{ type = string }"), "0 5"},
        {attribute("type = boolean\ndefault = yes"), "0 6"},
        {attribute("type = numeric\ndefault = x1"), "0 6"},
        {attribute("type = single_choice\ndefault = n choice = n:0"), "0 6"},
        {attribute("type = single_choice choice = n:0\ndefault = n"), "0 6"}, // the key
        {attribute("type = range range = '1,5'\ndefault = 6"), "0 6"},
        {attribute("type = boolean default = y"), "1 0"},
        {head + "s { # }\n}\n'not a word' { {", "1 0"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(outcome(one.text), one.outcome) << one.text;
}

TEST_F(Rules, HostileFilesEndWithAPlace) {
    for (size_t cut = 0; cut < whole.size(); cut += km_test::sanitized ? 2 : 1) {
        const std::string end = outcome(whole.substr(0, cut));
        EXPECT_TRUE(end == "1 0" ? cut > head.find("e = 'kmspd") : end[0] == '0' && end[2] > '0')
            << cut << " " << end;
    }
    std::string nested = head;
    for (int i = 0; i < 10000; ++i)
        nested += "a { ";
    const std::string long_word(1 << 20, 'x');
    const struct {
        std::string text;
        const char* outcome;
    } cases[] = {{nested, "0 3"},
                 {long_word, "0 1"},
                 {head + long_word + " { " + long_word, "0 3"},
                 {head + "s { a { default = '" + long_word + "' } }", "1 0"},
                 {head + "s { builder = \"" + long_word, "0 3"},
                 {head + std::string("s\0{\0}\0\0", 8), "1 0"}, // a NUL is a blank, and no end
                 {head + std::string("\0s = }", 6), "0 3"},
                 {head + "s { }\n\nt\xff { }", "0 5"},
                 {head + "s { }\n'\xc3\xbc' \xc3", "0 4"}, // also behind what is looked at
                 {std::string("\xff\xfev\0e\0r\0", 8), "0 1"},
                 {std::string(17 << 20, ' '), "0 -1"}};
    for (const auto& one : cases)
        EXPECT_EQ(outcome(one.text), one.outcome) << one.text.substr(0, 60);
    for (const char* path : {"none", "..", "/dev/zero"}) {
        EXPECT_EQ(rules.initialize(pathname((dir.path() + "/" + path).c_str())), 0);
        EXPECT_EQ(rules.initialize(pathname(path)), 0);
        EXPECT_EQ(rules.error_line, -1);
    }
}

TEST(RuleValues, AreTested) {
    for (const char* text : {"", "-", "+x", "1a", "7"})
        EXPECT_EQ(is_number(u(text)), 1) << text;
    for (const char* text : {"a1", " 1", ".5", "\xc2\xb2"})
        EXPECT_EQ(is_number(u(text)), 0) << text;

    vector bits, none, one_end, range;
    value_to_pair_list(u"a:1,,b:2,:8,c", bits); // a key may be empty; "c" is 0 as a number
    EXPECT_EQ(items(bits), "|a:1|b:2|:8|c:c");
    value_to_list(u",5,", one_end);
    value_to_list(u"-5,10", range);
    for (const char* fits : {"0", "11", "3", "x"})
        EXPECT_EQ(is_a_multichoice(u(fits), bits), 1) << fits;
    for (const char* wrong : {"4", "12", "-1", "99999999999"})
        EXPECT_EQ(is_a_multichoice(u(wrong), bits), 0) << wrong;
    EXPECT_EQ(is_a_choice(u"2", bits), 1);
    EXPECT_EQ(is_a_choice(u"b", bits), 0);
    EXPECT_EQ(is_a_choice(u"-5", range), 0); // texts are no pairs
    for (const char* fits : {"-5", "10", "-5,10", "10,-5", "x"})
        EXPECT_EQ(is_a_valid_range(u(fits), range), 1) << fits;
    for (const char* wrong : {"-6", "11", "0,11", "-6,0", "1,2,3", "", ",,"})
        EXPECT_EQ(is_a_valid_range(u(wrong), range), 0) << wrong;
    for (const vector* wrong : {&none, &one_end, &bits})
        EXPECT_EQ(is_a_valid_range(u"1", *wrong), 0);

    const char* names[] = {"invalid",        "boolean",    "numeric",       "string",
                           "pathname",       "hex_buffer", "single_choice", "multi_choice",
                           "character_mask", "object",     "range"};
    for (int i = 0; i < 11; ++i)
        EXPECT_EQ(value_to_type(u(names[i])), i);
    EXPECT_EQ(value_to_type(u"Boolean"), type::t_invalid);
}
