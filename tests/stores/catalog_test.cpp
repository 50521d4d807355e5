// Keys, entries and status words of the catalog.
#include "catalog.h"
#include "persistent_hashtable.h"
#include "report_entry.h"
#include "status_words.h"

#include "support/coded.h"
#include "support/engine_home.h"

#include <gtest/gtest.h>
#include <string>

using namespace std::string_literals;
using km::cm_catalog_entry;
using km::cm_catalog_key;
using km::ustring;
using km_test::encoded;

namespace {

std::string letters(long word) {
    char text[6];
    km::dbstatus_to_str(word, text);
    return text;
}

} // namespace

TEST(StatusWords, LettersAndWordsAgree) {
    for (const char* text : {"IC---", "RC---", "IP---", "IPP--", "IPU--", "ICU--", "ICR--", "ICU-E",
                             "IPUBC", "-----", "IC-D-", "IC-H-", "RC--G"})
        EXPECT_EQ(letters(km::dbstatus_to_long(text)), text);
    EXPECT_EQ(km::dbstatus_to_long("xx?z!"), 0);
    EXPECT_EQ(km::dbstatus_to_long("IC"), 0x4020000);
    EXPECT_EQ(letters(km::dbstatus_to_long("IC-H-") | km::db_reboot), "IC-B-");
    const struct {
        const char* text;
        long status;
    } statuses[] = {{"IC---", 2},
                    {"ICU--", 5},
                    {"ICU-E", 5 + km::cs_error},
                    {"-----", 0},
                    {"----E", km::cs_error},
                    {"I-U--", km::cs_error},
                    {"ICU-C", 5}};
    for (const auto& one : statuses)
        EXPECT_EQ(km::dbstatus_to_cmstatus(one.text), one.status) << one.text;
    EXPECT_EQ(km::dbstatus_to_lastaction("RC---"), 2);
    EXPECT_EQ(km::dbstatus_to_lastaction("-----"), -1);
}

TEST(StatusWords, WordsOutsideTheTableGiveNoBits) {
    EXPECT_EQ(km::cmstatus_to_dbstatus(-1), 0);
    EXPECT_EQ(km::cmstatus_to_dbstatus(7), 0);
    EXPECT_EQ(km::cmstatus_to_dbstatus(0x7FFFFFFF), 2);
    EXPECT_EQ(km::cmstatus_to_dbstatus(-5), 2);
    EXPECT_EQ(km::cmstatus_to_dbstatus(0x10002), 0x20002);
}

TEST(StatusWords, UnixAttributesAndMacros) {
    EXPECT_EQ(km::get_unix_attributes_string(0), ustring(",,"));
    for (const char* text : {"rwxsl,rwxs,rwx", "rw,r,r", ",,x"})
        EXPECT_EQ(km::get_unix_attributes_string(km::get_unix_attributes(ustring(text))),
                  ustring(text));
    EXPECT_EQ(km::get_unix_attributes(ustring("q,l,s,rwx")), 0u);
    ustring text("a /b /c");
    EXPECT_EQ(km::substitute_service_macro(text), ustring("a<*>b<*>c"));
    EXPECT_EQ(km::restore_service_macro(text), ustring("a /b /c"));
}

TEST(CatalogEntry, TheStatusWordFollowsTheFields) {
    const struct {
        int stable, now, action, result;
        const char* text;
    } cases[] = {{2, 2, 1, 0, "IC---"},
                 {2, 5, 1, 0, "ICU-C"},
                 {4, 4, 1, 1, "IPUBC"},
                 {2, 0x10000, 1, 0, "IC--E"},
                 {0, 0, 2, 0, "R----"},
                 {0, 2, 1, 6, "IC--C"},
                 {0x10000, 0x10000, 1, 10, "I---E"}};
    for (const auto& one : cases) {
        cm_catalog_entry entry;
        entry.cm_status = one.stable;
        entry.current_cm_status = one.now;
        entry.last_action = one.action;
        entry.current_result = one.result;
        EXPECT_EQ(letters(entry.get_dbstatus()), one.text);
    }
    cm_catalog_entry entry;
    entry.set_discovered(1);
    EXPECT_TRUE(entry.is_discovered() && !entry.is_hidden());
    entry.set_discovered(0);
    EXPECT_FALSE(entry.is_discovered());
}

TEST(CatalogKey, EqualHashesAreNotEqualKeys) {
    const cm_catalog_key a(ustring("a"), ustring("1^0")), b(ustring("a^1"), ustring("0"));
    EXPECT_EQ(a.hash_code(), b.hash_code());
    EXPECT_FALSE(a == b);
    const std::string name = "com.ombrel.sd.cmObjects.cm_catalog_key";
    EXPECT_EQ(encoded(cm_catalog_key(ustring("a"), ustring("1"))),
              "\1\0\x26"s + name + "\0\0\0\1\0\0\x08\0\1a\0\1\x08\0\1"s + "1\xFF\xFF"s);
}

TEST(Catalog, AnEntryComesBackWholeAndHiddenStaysHidden) {
    km_test::engine_home home;
    const km::pathname path(home.dir.at("packages.pht").c_str());
    const cm_catalog_key key(ustring("headers"), ustring("1.0"));
    cm_catalog_entry entry;
    entry.cm_status = entry.current_cm_status = 2;
    entry.last_action = 1;
    entry.operation_in_progress = 14;
    entry.profile_name = ustring("/var/work/PP999969");
    entry.entry_dependency = ustring("$(x) == 1");
    entry.db_status = static_cast<std::int32_t>(0xC0000007);
    entry.backup_availability = 1;
    entry.call_mode = 0x8000;
    {
        km::Persistent_Hashtable catalog(path, 1, 0, nullptr);
        EXPECT_EQ(catalog.update(key.clone(), entry.clone()), 1);
    }
    km::Persistent_Hashtable catalog(path, 1, 0, nullptr);
    const auto* read = catalog.get_as<cm_catalog_entry>(key);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->profile_name, entry.profile_name);
    EXPECT_EQ(read->entry_dependency, entry.entry_dependency);
    EXPECT_EQ(read->call_mode, 0x8000);
    EXPECT_EQ(read->backup_availability, 1);
    EXPECT_TRUE(read->is_hidden());
    EXPECT_EQ(letters(read->db_status), "IC-H-"); // the low bits are the fields' now
    EXPECT_EQ(encoded(*read), encoded(entry));
    const std::string name = "com.ombrel.sd.cmObjects.cm_report_entry";
    EXPECT_EQ(encoded(km::cm_report_entry()),
              "\1\0\x27"s + name +
                  "\0\0\0\1\0\0\x08\0\0\0\2\4\0\0\0\0\0\1\4\0\0\0\0\0\3\x08\0\0\xFF\xFF"s);
}
