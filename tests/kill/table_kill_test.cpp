// A process that dies at any named point of the stores leaves the old or the new content.
#include "durable.h"
#include "persistent_hashtable.h"
#include "refcounttable.h"
#include "ustring.h"

#include "support/child.h"
#include "support/engine_home.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using km::pathname;
using km::Persistent_Hashtable;
using km::ustring;
using km_test::dies_at;

namespace {

std::string content(const pathname& path) {
    EXPECT_EQ(Persistent_Hashtable::recover(path), 1);
    Persistent_Hashtable table(path, 1, 0, nullptr);
    if (table.get_table_error())
        return "error " + std::to_string(table.get_table_error());
    std::string text;
    for (const char* key : {"a", "b", "c"})
        if (const auto* value = table.get_as<ustring>(ustring(key)))
            text += std::string(key) + "=" + value->mbcs_str() + " ";
    return text;
}

} // namespace

TEST(Kill, ATableIsTheOldOrTheNewOne) {
    const km_test::engine_home home;
    const auto& dir = home.dir;
    const pathname path(dir.at("t.pht").c_str());
    const std::string old_text = "a=1 b=2 ";
    const struct {
        const char* point;
        const char* new_text;
        bool removes;
        bool always_new;
    } cases[] = {{"table.slot.written", "a=1 b=2 c=3 ", false, false},
                 {"table.slot.before_mark", "a=1 b=2 c=3 ", false, false},
                 {"table.slot.after_mark", "a=1 b=2 c=3 ", false, true},
                 {"table.remove.before_mark", "a=1 ", true, false},
                 {"table.remove.after_mark", "a=1 ", true, true},
                 {"table.defrag.copying", "a=1 ", true, true},
                 {"table.defrag.before_copied", "a=1 ", true, true},
                 {"table.defrag.copied", "a=1 ", true, true},
                 {"table.defrag.moved", "a=1 ", true, true},
                 {"table.defrag.cut", "a=1 ", true, true},
                 // Inside the rewriting: slots of the copy, and slots moved to the start.
                 {"table.slot.before_mark:1", "a=1 ", true, true},
                 {"table.slot.before_mark:2", "a=1 ", true, true},
                 {"table.slot.written:2", "a=1 ", true, true}};
    for (const auto& one : cases) {
        ::unlink(dir.at("t.pht").c_str());
        {
            Persistent_Hashtable table(path, 0, 0, nullptr);
            table.update(new ustring("a"), new ustring("1"));
            table.update(new ustring("b"), new ustring("2"));
        }
        EXPECT_TRUE(dies_at(one.point, [&] {
            Persistent_Hashtable table(path, 1, 0, nullptr);
            table.set_free_threshold(10);
            const ustring key("b");
            if (one.removes)
                table.remove(&key);
            else
                table.update(new ustring("c"), new ustring("3"));
        })) << one.point;
        const std::string found = content(path);
        EXPECT_TRUE(found == one.new_text || (!one.always_new && found == old_text))
            << one.point << ": " << found;
        EXPECT_EQ(content(path), found) << "a second recovery changes nothing";
    }
}

TEST(Kill, ADurableReplaceIsTheOldOrTheNewFile) {
    km_test::scratch_dir dir;
    const pathname path(dir.at("f").c_str());
    for (const char* point :
         {"durable.before_write", "durable.before_rename", "durable.after_rename"}) {
        dir.write("f", "old");
        EXPECT_TRUE(dies_at(point, [&] {
            km::replace_durably(path, 0600, [](int out) { return km::write_fully(out, "new", 3); });
        })) << point;
        EXPECT_EQ(dir.read("f"), std::string(point) == "durable.after_rename" ? "new" : "old");
    }
}

TEST(Kill, CountsAreInOneOfTheTwoFiles) {
    const km_test::engine_home home;
    const auto& dir = home.dir;
    const pathname where(dir.path().c_str());
    const ustring object("/f"), package("p"), version("1");
    {
        km::cm_ref_count_table table(where, 0);
        table.set_counter(object, package, version, 1);
        table.commit();
    }
    const std::string old_bytes = dir.read("rct.tme");
    for (const char* point :
         {"counts.commit.before_backup", "counts.commit.backed_up", "counts.commit.written"}) {
        ::unlink(dir.at("rctbak.tme").c_str());
        dir.write("rct.tme", old_bytes);
        EXPECT_TRUE(dies_at(point, [&] {
            km::cm_ref_count_table table(where, 0);
            table.set_counter(object, package, version, 2);
            table.commit();
        })) << point;
        EXPECT_TRUE(dir.read("rct.tme") == old_bytes || dir.read("rctbak.tme") == old_bytes);
        if (!dir.exists("rct.tme"))
            km::rename_file(dir.at("rctbak.tme").c_str(), dir.at("rct.tme").c_str());
        km::cm_ref_count_table table(where, 1);
        const int count = table.get_ref_count(object);
        EXPECT_EQ(count, std::string(point) == "counts.commit.written" ? 2 : 1) << point;
    }
}
