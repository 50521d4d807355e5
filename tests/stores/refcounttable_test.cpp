// Counts of the packages that share an object.
#include "refcounttable.h"

#include "support/engine_home.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using km::cm_ref_count_table;
using km::pathname;
using km::ustring;

namespace {

class Counts : public testing::Test {
  protected:
    Counts() { std::filesystem::create_directory(dir_.at("c")); }
    pathname where() const { return pathname(dir_.at("c").c_str()); }
    km_test::engine_home home_;
    const km_test::scratch_dir& dir_ = home_.dir;
    const ustring file_ = ustring("/opt/shared"), a_ = ustring("a"), b_ = ustring("b"),
                  one_ = ustring("1");
};

} // namespace

TEST_F(Counts, PackagesAreCountedApartAndTheLastTakesTheObject) {
    {
        cm_ref_count_table table(where(), 0);
        EXPECT_TRUE(dir_.exists("c/rctbak.tme"));
        EXPECT_EQ(table.set_counter(file_, a_, one_, 1), 1);
        EXPECT_EQ(table.set_counter(file_, b_, one_, 2), 1);
        EXPECT_EQ(table.set_counter(file_, a_, one_, 3), 1);
        EXPECT_EQ(table.get_ref_count(file_), 5);
        EXPECT_EQ(table.commit(), 1);
        EXPECT_FALSE(dir_.exists("c/rctbak.tme"));
        table.set_counter(file_, a_, ustring("2"), 9); // not committed
    }
    cm_ref_count_table table(where(), 0);
    EXPECT_EQ(dir_.read("c/rct.tme"), dir_.read("c/rctbak.tme"));
    EXPECT_EQ(table.get_ref_count(file_), 5);
    EXPECT_EQ(table.get_ref_count(file_, b_, one_), 2);
    EXPECT_EQ(table.get_ref_count(ustring("none")), 0);
    EXPECT_EQ(table.reset_counter(ustring("none"), a_, one_), 1);
    EXPECT_EQ(table.set_counter(ustring("none"), a_, one_, 0), 1);
    EXPECT_EQ(table.reset_counter(file_, a_, one_), 1);
    EXPECT_EQ(table.get_ref_count(file_), 2);
    EXPECT_EQ(table.reset_counter(file_, b_, one_), 1);
    EXPECT_EQ(table.get_table()->size(), 0);
    EXPECT_EQ(table.commit(), 1);
    EXPECT_EQ(table.commit(), 1);
}

TEST_F(Counts, ACutOrForeignFileIsAnEmptyTable) {
    {
        cm_ref_count_table table(where(), 0);
        for (int i = 0; i < 30; ++i)
            table.set_counter(ustring(("/f" + std::to_string(i)).c_str()), a_, one_, 1);
        table.commit();
    }
    const std::string whole = dir_.read("c/rct.tme");
    for (const auto& bytes : {whole.substr(0, whole.size() / 2), std::string(), std::string("junk"),
                              whole.substr(0, whole.size() - 1)}) {
        dir_.write("c/rct.tme", bytes);
        cm_ref_count_table table(where(), 1);
        EXPECT_EQ(table.get_ref_count(ustring("/f1")), 0);
        EXPECT_FALSE(dir_.exists("c/rct.tme"));
    }
}

TEST_F(Counts, AFailedCommitKeepsTheOldTableSomewhere) {
    cm_ref_count_table table(where(), 0);
    table.set_counter(file_, a_, one_, 1);
    ASSERT_EQ(table.commit(), 1);
    const std::string old = dir_.read("c/rct.tme");
    table.set_counter(file_, b_, one_, 1);
    ::mkdir(dir_.at("c/rctbak.tme").c_str(), 0755);
    dir_.write("c/rctbak.tme/in-the-way", "");
    EXPECT_EQ(table.commit(), 0);
    EXPECT_EQ(dir_.read("c/rct.tme"), old);
}
