// Versions, their order, and dependencies on the installed software.
#include "catalog.h"
#include "dependency.h"
#include "package_version.h"
#include "persistent_hashtable.h"
#include "variable_list.h"

#include "support/has.h"
#include "support/scratch.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

using km::pathname;
using km::ustring;

TEST(Versions, CompareNumbersWordsAndDotsInStep) {
    const std::string huge(400, '9');
    const struct {
        std::string low, high;
    } pairs[] = {{"1", "1.0"},   {"1.2", "1.2.0"},   {"1.9", "1.10"},         {"9", "10"},
                 {"a10", "a9"},  {"1.0.a", "1.0.b"}, {"1.2", "1.2a"},         {"1.2.1", "1.2a"},
                 {"1.a", "a.1"}, {"1", "a"},         {"0", "99999999999999"}, {"1", huge},
                 {"", "0"}};
    for (const auto& [low, high] : pairs) {
        EXPECT_LT(km::compare_versions_znp(ustring(low.c_str()), ustring(high.c_str())), 0)
            << low << " against " << high;
        EXPECT_GT(km::compare_versions_znp(ustring(high.c_str()), ustring(low.c_str())), 0)
            << high << " against " << low;
    }
    for (const auto& [a, b] :
         {std::pair{"1.0", "1.0"}, {"01.0", "1.00"}, {"1 2", "1  2"}, {"", ""}})
        EXPECT_EQ(km::compare_versions_znp(ustring(a), ustring(b)), 0) << a << " against " << b;
    const char* versions[] = {"1.10", "1", "2.0", "1.9"};
    std::qsort(versions, 4, sizeof versions[0], km::compare_versions_znp);
    EXPECT_STREQ(versions[2], "1.10");
    EXPECT_STREQ(versions[3], "2.0");
}

TEST(Versions, AreRefusedIfTheyAreNotWellFormed) {
    using texts = std::initializer_list<std::string>;
    for (const auto& good : texts{"1", "1.2-b_3/x", "v(2)", std::string(64, '1')})
        EXPECT_EQ(km::sp_check_version(ustring(good.c_str())), 1) << good;
    const std::string four_of_two_bytes("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9");
    for (const auto& bad :
         texts{"", ".1", "1.", "1..2", "1*", "1?", "!", "1,2", "1 2", "a;b", "a:b", "1^2", "'",
               "\"", std::string(65, '1'), std::string(58, '1') + four_of_two_bytes})
        EXPECT_EQ(km::sp_check_version(ustring(bad.c_str())), 0) << bad;
}

TEST(Versions, StandBehindTheFirstDelimiterOfATitle) {
    const struct {
        const char *text, *name, *version;
        char delimiter;
    } titles[] = {
        {"a^1.2", "a", "1.2", '^'}, {"a.1.2", "a", "1.2", '.'}, {"a.b^1", "a.b", "1", '^'},
        {"a^b^c", "a", "b^c", '^'}, {"a^", "a", "", '^'},       {"tool", "tool", "", 0},
    };
    for (const auto& one : titles) {
        ustring name(one.text), version(u"before");
        EXPECT_EQ(km::sp_split_name(name, name, version), one.delimiter);
        EXPECT_STREQ(name.mbcs_str(), one.name);
        EXPECT_STREQ(version.mbcs_str(), one.version);
    }
}

namespace {

constexpr const char* before = "#installed_software#base^1.0;";

class Dependencies : public testing::Test {
  protected:
    void SetUp() override { list_.set_value(u"installed_software", ustring(before)); }
    int check(const char* dependency, int style, const char* package = "tool^1.0",
              const char* extra = "") {
        message_ = u"untouched";
        unresolved_ = -1;
        return km::is_valid_dependency(&list_, ustring(dependency), ustring(package),
                                       ustring(extra), style, unresolved_, message_);
    }
    std::string held() {
        const auto* value = list_.get_as<ustring>(ustring(u"installed_software"));
        return value ? value->mbcs_str() : "(none)";
    }
    km::variable_list list_;
    int unresolved_ = -1;
    ustring message_;
};

const char* const needs_base = "$(installed_software) >= 'base^0.9'";
const char* const needs_tool = "$(installed_software) CONTAINS 'tool^1.0'";
const char* const no_tool = "NOT ($(installed_software) CONTAINS 'tool^1.0')";
const char* const needs_other = "$(installed_software) CONTAINS 'other^1'";

} // namespace

TEST_F(Dependencies, AreRefusedOnlyForWhatTheOperationChanges) {
    const struct {
        const char* dependency;
        int valid[4]; // by style
    } examples[] = {
        {needs_base, {1, 1, 1, 1}},
        {needs_tool, {1, 0, 0, 1}},  // removing the tool breaks it
        {no_tool, {1, 1, 1, 0}},     // installing the tool breaks it
        {needs_other, {1, 0, 1, 1}}, // false in any case
    };
    for (const auto& one : examples)
        for (const int style : {0, 2, 3, 1}) {
            EXPECT_EQ(check(one.dependency, style), one.valid[style])
                << one.dependency << " style " << style;
            EXPECT_EQ(message_ == ustring(u"untouched"), one.valid[style] == 1);
            EXPECT_EQ(held(), before);
        }
    EXPECT_EQ(check(needs_tool, 1, "tool^1.0", "tool^1.0;"), 1);
    EXPECT_EQ(held(), std::string(before) + "tool^1.0;");
}

TEST_F(Dependencies, WithoutAPackageMustHoldAsThingsAre) {
    for (const int style : {0, 1, 2, 3}) {
        EXPECT_EQ(check(needs_base, style, ""), 1);
        EXPECT_EQ(check(needs_other, style, ""), 0);
    }
}

TEST_F(Dependencies, ExtraSoftwareCountsOnlyWithoutThePackage) {
    EXPECT_EQ(check(needs_other, 3, "tool^1.0", "other^1;"), 0);
    EXPECT_EQ(held(), before);
    EXPECT_EQ(check(needs_other, 2, "tool^1.0", "other^1;"), 1);
}

TEST_F(Dependencies, TellTheComparisonsThatWereMade) {
    const std::string line(" ---------------------------- ");
    EXPECT_EQ(check("$(installed_software) CONTAINS 'x' AND 1 > 2", 1), 0);
    EXPECT_EQ(message_.mbcs_str(), "\n" + line +
                                       "\n$(installed_software) CONTAINS \"x\"  [ false ] \n" +
                                       "1.000000 > 2.000000  [ false ] \n" + line);
    EXPECT_EQ(check("NOT 'x'", 1), 0);
    const std::string failed = message_.mbcs_str();
    EXPECT_HAS(failed, "Incompatible operand type");
    EXPECT_HAS(failed, "\n" + line + "\nNOT \"x\"   [ error ] \n" + line);
    EXPECT_EQ(check("a ==", 1), 0);
    EXPECT_EQ(std::string(message_.mbcs_str()).find(line), std::string::npos);
}

TEST_F(Dependencies, AnUndefinedVariableIsToldFromThenOn) {
    EXPECT_EQ(check("$(nobody) == 'x'", 1), 0);
    EXPECT_EQ(unresolved_, 1);
    EXPECT_EQ(check(needs_other, 1), 0);
    EXPECT_EQ(unresolved_, 1);
    EXPECT_EQ(check(needs_base, 1), 1);
    EXPECT_EQ(unresolved_, -1);
}

TEST_F(Dependencies, AListWithoutInstalledSoftwareIsLeftWithoutIt) {
    const ustring name(u"installed_software");
    list_.remove(&name);
    EXPECT_EQ(check(needs_base, 3), 1);
    EXPECT_EQ(held(), "(none)");
    EXPECT_EQ(
        km::is_valid_dependency(nullptr, ustring(needs_base), u"", u"", 1, unresolved_, message_),
        0);
}

TEST(DependencyStyle, GoesByOperationAndStatus) {
    const struct {
        long operation, status;
        int style;
    } rows[] = {{0, 0, 3},
                {16, 0, 3},
                {6, 0, 0},
                {6, 0x20000, 0},
                {6, 0x4000000, 0},
                {6, 0x4020000, 2},
                {6, 0xC020000, 3},
                {10, 0, 0},
                {10, 0x4000000, 3},
                {1000, 0x4000000, 2},
                {1000, 0x8000000, 0},
                {9, 0x4020000, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(km::get_check_dependency_style(7, row.operation, row.status), row.style)
            << row.operation << " " << row.status;
}

TEST(BackupFile, IsTheProfileOfTheCatalogsEntry) {
    const km_test::scratch_dir dir;
    km::Persistent_Hashtable catalog(pathname(dir.at("catalog").c_str()), 0, 1, nullptr);
    for (const char* name : {"backup", "empty"}) {
        auto* entry = new km::cm_catalog_entry;
        if (*name == 'b')
            entry->profile_name = pathname("store/profile.1");
        ASSERT_EQ(catalog.put(new km::cm_catalog_key(ustring(name), u"1.0.0"), entry), 1);
    }
    for (const auto& [name, file] :
         {std::pair{"backup", "store/profile.1"}, {"empty", "empty"}, {"none", "none"}}) {
        pathname path(name);
        EXPECT_EQ(km::get_backup_filename(&catalog, path), std::string(name) != file);
        EXPECT_TRUE(path.get_text() == pathname(file).get_text());
    }
}
