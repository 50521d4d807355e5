// Text definitions: what they say, where their faults are, and that writing and reading agree.
#include "definition_fixture.h"
#include "expression.h"
#include "log_objects.h"
#include "pair.h"
#include "variable_list.h"

#include "support/sanitized.h"

#include "support/has.h"

#include <random>
#include <set>

using namespace km_test;
using namespace std::string_literals;
using km::ustring;

namespace {

TEST_F(Definition, SaysWhatThePackageHolds) {
    const auto package = read("# a comment\nkmspd 1.0 # another\npackage { name = a^b version='1'\n"
                              "title = \"Q \\\"x\\\" \\\\ \\t \\xC3\\xA4\" undoable = required\n"
                              "condition = '$(os_name) == \"Linux\"'\n"
                              "default_variables { port = 80 dir = $(x)/y }\n"
                              "log_object_list { location = /var/log unix_user_id = 5 }\n"
                              "nested_software_package { package { name = n version = 2 } }\n"
                              "restart { during_install = after timeout = 9 } }\n");
    ASSERT_TRUE(package) << told();
    EXPECT_EQ(package->name, ustring(u"a"));
    EXPECT_EQ(package->version, ustring(u"b.1"));
    EXPECT_EQ(package->title, ustring(u"Q \"x\" \\ \t \u00e4"));
    EXPECT_EQ(package->undoable, 4);
    EXPECT_EQ(package->condition, ustring(u"$(os_name) == \"Linux\""));
    EXPECT_EQ(package->log_object_list->unix_user_id, 5);
    ASSERT_EQ(package->nested_packages.size(), 2);
    EXPECT_EQ(package->nested_packages.at<km::pair>(0)->get_key(), ustring(u"a"));
    ASSERT_EQ(package->variables->get_defaults()->size(), 2);
    EXPECT_EQ(package->get_children().size(), 1);
}

struct fault_row {
    const char* name;
    std::string body; // from line 5 on
    std::string places;
    std::string told; // part of the messages
};

TEST_F(Definition, TellsEveryFaultAtItsPlace) {
    const std::string file = "add_file { path = /f }\n";
    const fault_row rows[] = {
        {"misspelt words", " titel = x\nadd_fil { path = /f }\n",
         "5:2=" + std::to_string(km::im_unknown_attribute) +
             " 6:1=" + std::to_string(km::im_unknown_block),
         "Did you mean 'title'?\n     titel = x\n     ^"},
        {"a block of another place", "log_object_list { restart { } }\n",
         "5:19=" + std::to_string(km::im_misplaced_block), "cannot stand in 'log_object_list'"},
        {"an attribute of another stanza", "restart { path = /x }\n",
         "5:11=" + std::to_string(km::im_unknown_attribute), "no attribute 'path' in 'restart'"},
        {"a value of another type",
         "stop_on_failure = maybe\nweb_view_mode = 1x\n"
         "undoable = alowed\nlog_mode = 99999999999\n",
         "5:19=" + std::to_string(km::im_not_boolean) + " 6:17=" +
             std::to_string(km::im_not_number) + " 7:12=" + std::to_string(km::im_not_choice) +
             " 8:12=" + std::to_string(km::im_not_number),
         "Did you mean 'allowed'?"},
        {"what is missing, and what came twice", "add_file { }\ntitle = a\ntitle = b\n",
         "5:1=" + std::to_string(km::im_mandatory) + " 7:1=" + std::to_string(km::im_twice),
         "given before, in line 6"},
        {"a block twice", "log_object_list { }\nlog_object_list { }\n",
         "6:1=" + std::to_string(km::im_block_twice), ""},
        {"a block for a value, a value for a block", "title { }\nlog_object_list = x\n",
         "5:1=" + std::to_string(km::im_is_attribute) + " 6:1=" + std::to_string(km::im_is_block),
         "write log_object_list { ... }"},
        {"a mode that is no octal number", "add_file { path = /f mode = 0689 }\n",
         "5:29=" + std::to_string(km::im_mask), "may hold 0-7 only"},
        {"a condition beside another fault",
         "condition = '$(a) =='\ntitel = x\nrestart { condition = \"$(a == 1\" }\n",
         "5:13=" + std::to_string(km::im_no_condition) +
             " 6:1=" + std::to_string(km::im_unknown_attribute) +
             " 7:23=" + std::to_string(km::im_no_condition),
         "'condition' is no condition: Syntax Error: Unmatched opening parenthesis.\n"
         "    restart { condition = \"$(a == 1\" }\n                          ^"},
        {"a quote that stays open", "title = \"x\n" + file,
         "5:9=" + std::to_string(km::im_unclosed_quote), "quote is not closed"},
        {"an unknown escape", "title = \"\\q\"\n", "5:10=" + std::to_string(km::im_escape), ""},
        {"characters that no word holds",
         "title = a\x01"
         "b\n",
         "5:10=" + std::to_string(km::im_control) + " 6:1=" + std::to_string(km::im_expected), ""},
        {"a mark out of place", "= x\ntitle y\n",
         "5:1=" + std::to_string(km::im_expected) + " 6:1=" + std::to_string(km::im_expected), ""},
        {"columns of characters, not bytes", "title = \"\u00e4\u00f6\" xx = 1\n",
         "5:14=" + std::to_string(km::im_unknown_attribute), "\u00e4\u00f6"},
        {"a version that no package has", "version = 2\n", "5:1=" + std::to_string(km::im_twice),
         ""},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(read_body(row.body)) << row.name;
        EXPECT_EQ(faults().substr(0, row.places.size()), row.places) << row.name << "\n" << told();
        EXPECT_HAS(told(), row.told) << row.name << "\n" << told();
    }
}

TEST_F(Definition, RefusesWhatIsNoDefinition) {
    const std::pair<std::string, km::import_message> rows[] = {
        {"", km::im_signature},
        {"package { name = a version = 1 }", km::im_signature},
        {"kmspd 9.9\npackage { name = a version = 1 }", km::im_version},
        {"kmspd 1.0\n", km::im_no_root},
        {"kmspd 1.0\nadd_file { path = /x }", km::im_misplaced_block},
        {"kmspd 1.0\npackage { name = a version = 1 } x", km::im_behind_end},
        {"kmspd 1.0\npackage { name = a version = 1 ", km::im_unclosed_block},
        {"kmspd 1.0\npackage { name = a version = .1 }", km::im_refused_value},
        {"kmspd 1.0\npackage { name = \"\xff\" version = 1 }", km::im_encoding},
        {"kmspd 1.0\npackage { name = \"\\xff\" version = 1 }", km::im_encoding},
        {"\xff\xfek\0m\0"s, km::im_utf16},
        {"k\0m\0s\0p\0d\0 \x00"s, km::im_utf16},
        {"\0k\0m\0s\0p\0d\0\n"s, km::im_utf16},
        {"kmspd 1.0\npackage { name = a version = 1\0 }"s, km::im_control},
    };
    for (const auto& [text, key] : rows) {
        EXPECT_FALSE(read(text)) << text;
        bool found = false;
        for (const auto& one : importer_.problems().all())
            found |= one.key == key;
        EXPECT_TRUE(found) << text << "\n" << told();
    }
    km::cm_package* package = nullptr;
    EXPECT_FALSE(importer_.load(km::pathname(scratch_.path().c_str()), package));
}

TEST_F(Definition, AMarkInFrontAndOtherEndsOfLinesMeanNothing) {
    const auto package =
        read("\xEF\xBB\xBFkmspd 1.0\r\npackage {\r\nname = a\r\nversion = 1\r\n}\r\n");
    ASSERT_TRUE(package) << told();
    EXPECT_EQ(package->name, ustring(u"a"));
    EXPECT_FALSE(read("\xEF\xBB\xBFkmspd 1.0 package { name = a }"));
    EXPECT_EQ(faults().substr(0, 5), "1:11=") << told();
}

TEST_F(Definition, FaultsOfTheClassesComeWithTheirLines) {
    const auto twice = read_body("nested_software_package { package { name = n version = 2 }\n"
                                 "package { name = n version = 2 } }\n");
    EXPECT_TRUE(twice) << told();
    EXPECT_HAS(told(), "n^2");
    EXPECT_EQ(twice->nested_packages.size(), 2);
}

TEST_F(Definition, HostileTextsEndWithFaults) {
    std::string deep = "kmspd 1.0\npackage { name = a version = 1\n", closed = deep;
    for (int i = 0; i < 10000; ++i)
        deep += "generic_container { ";
    closed = deep;
    for (int i = 0; i < 10000; ++i)
        closed += "} ";
    EXPECT_FALSE(read(deep));
    EXPECT_FALSE(read(closed));
    EXPECT_FALSE(read("kmspd 1.0\npackage { name = a version = 1 title = \"" +
                      std::string(10 << 20, 'x') + "\" }"));
    EXPECT_FALSE(read(std::string(10 << 20, 'x')));
    EXPECT_FALSE(read(std::string(1 << 20, '{')));
    std::string many = "kmspd 1.0\npackage { name = a version = 1\n";
    for (int i = 0; i < 50000; ++i)
        many += "x = 1\n";
    EXPECT_FALSE(read(many + "}"));
    EXPECT_LE(importer_.problems().all().size(), size_t{km::definition_problems::most});
    EXPECT_LT(told().size(), size_t{1} << 20);
}

using names = std::set<std::string>; // "stanza" and "stanza: attribute"

// Definitions by chance: every stanza and attribute of the rules, with values that are hard to
// quote. `told` takes what was used.
class Chance {
  public:
    Chance(unsigned seed, const km::rule_book& book, names& told)
        : random_(seed), book_(book), told_(told) {}

    std::string definition() { return "kmspd 1.0\n" + block("package", "root", 0); }

  private:
    size_t below(size_t count) { return random_() % count; }
    template <class List> auto one_of(const List& list) { return list[below(std::size(list))]; }

    std::string block(const std::string& name, const std::string& context, int depth) {
        std::string key;
        const auto* stanza = book_.stanza(name, context, key);
        std::string text = name + " {\n";
        told_.insert(key);
        for (const auto& one : book_.attributes_of(key)) {
            const auto* rule = book_.attribute(one, key);
            if (!rule->mandatory && !one.starts_with("qep_") && below(2))
                continue;
            told_.insert(key + ": " + one);
            if (rule->type == km::attribute_descriptor::t_object)
                text += block(one, name, depth + 1);
            else
                text += one + " = " +
                        quoted(key == "add_file.corequisite_files" && one == "path"
                                   ? "d/" + std::to_string(++files_)
                                   : value(one, *rule)) +
                        "\n";
        }
        if (stanza && book_.is_free(key))
            for (size_t i = below(5); i > 0; --i)
                text += "v" + std::to_string(below(1000) * 10 + i) + " = " + quoted(odd()) + "\n";
        for (size_t i = depth < 4 ? below(5) : 0; i > 0; --i) {
            std::vector<std::string> inner;
            for (const auto& one : book_.stanzas_in(name))
                if (!book_.attribute(one, key))
                    inner.push_back(one);
            if (!inner.empty())
                text += block(one_of(inner), name, depth + 1);
        }
        return text + "}\n";
    }

    std::string odd() {
        static const char* const texts[] = {
            "",       "x",        "a b",       "q\"uote",
            "it's",   "both\"'",  "back\\",    "line\nfeed\r",
            "# no",   "{ = }",    "$(a)/$(b)", "\u00e4\u4e2d\U0001F600",
            "\ttab ", " blanks ", "n",         "0"};
        return one_of(texts);
    }

    std::string value(const std::string& name, const km::attribute_descriptor& rule) {
        static const char* const conditions[] = {"$(a) == \"b\"", "NOT ($(x) > 5)"};
        static const char* const accounts[] = {"0", "1000", "65534"};
        if (name == "condition")
            return one_of(conditions);
        if (name != "spb_path" && name != "log_path" && name.ends_with("_path"))
            return "/a/b c"; // of programs, and what belongs to it is written only with it
        if (name == "owner" || name == "group" || name == "user")
            return one_of(accounts);
        if (name.ends_with("_arguments") && !name.starts_with("qep_"))
            return "a 'b c' \"d $(e)\"";
        if (name == "mode")
            return below(2) ? "644" : "0755";
        if (name == "name" || name == "version")
            return std::to_string(below(1000));
        if (const auto known = usable_.find(name); known != usable_.end())
            return known->second;
        switch (rule.type) {
        case km::attribute_descriptor::t_boolean:
            return below(2) ? "y" : "n";
        case km::attribute_descriptor::t_numeric:
            return std::to_string(static_cast<int>(below(200)) - 100);
        case km::attribute_descriptor::t_range:
            return km::texts_of(rule.values)[below(2)];
        case km::attribute_descriptor::t_single_choice:
            return one_of(km::choice_values(rule));
        case km::attribute_descriptor::t_pathname:
            return below(2) ? "/a/b c" : "";
        default:
            return odd();
        }
    }

    static std::string quoted(const std::string& text) {
        std::string out = "\"";
        for (const char byte : text)
            out += byte == '\n'   ? "\\n"
                   : byte == '\r' ? "\\r"
                   : byte == '\t' ? "\\t"
                   : byte == '"'  ? "\\\""
                   : byte == '\\' ? "\\\\"
                                  : std::string(1, byte);
        return out + "\"";
    }

    std::mt19937 random_;
    const km::rule_book& book_;
    names& told_;
    int files_ = 0;
    // Texts with a form of their own.
    const std::map<std::string, std::string> usable_ = {{"unix_attributes", "rw,r"},
                                                        {"environment", "A=b C='d e'"},
                                                        {"exit_codes", "0:success,1-9:failure"}};
};

// Every stanza that stands somewhere, and its attributes.
names all_of(km::rule_book& book) {
    names all;
    for (km::Keyslist at(book.rules().stanzas); const auto* entry = at.next_entry();) {
        const std::string key = static_cast<const ustring*>(entry->get_key())->mbcs_str();
        if (static_cast<const km::stanza_descriptor*>(entry->get_value())->context.size() == 0)
            continue;
        all.insert(key);
        for (const auto& one : book.attributes_of(key))
            all.insert(key + ": " + one);
    }
    return all;
}

TEST_F(Definition, WhatIsWrittenReadsBackTheSame) {
    km::rule_book book;
    ASSERT_TRUE(book.load(messages_));
    const names wanted = all_of(book);
    names used;
    for (unsigned seed = 1; seed <= (sanitized && used == wanted ? 40 : 150); ++seed) {
        const std::string text = Chance(seed, book, used).definition();
        const auto first = read(text);
        ASSERT_TRUE(first) << text << told();
        const std::string written = write(*first);
        const auto second = read(written);
        ASSERT_TRUE(second) << written << told();
        ASSERT_EQ(coded(*first), coded(*second)) << text << "\nwritten as\n" << written;
    }
    EXPECT_EQ(used, wanted);
}

// A definition that a crash or a disk cut anywhere gives faults or a package, and nothing worse.
TEST_F(Definition, CutAnywhereItIsReadOrRefused) {
    km::rule_book book;
    ASSERT_TRUE(book.load(messages_));
    names used;
    const std::string text = Chance(7, book, used).definition();
    const size_t step = std::max<size_t>(text.size() / (sanitized ? 100 : 300), 1);
    for (size_t cut = 0; cut + 3 < text.size(); cut += step)
        EXPECT_FALSE(read(text.substr(0, cut))) << cut;
}

} // namespace
