// The one door through which objects reach the machine.
#include "target_root.h"

#include "support/scratch.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <filesystem>
#include <unistd.h>

namespace {

class TargetRoot : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directory(dir_.at("root"));
        ASSERT_EQ(km::set_target_root(dir_.at("root").c_str()), 1);
    }
    void TearDown() override { km::set_target_root(nullptr); }
    km_test::scratch_dir dir_;
};

} // namespace

TEST_F(TargetRoot, LinksAndDotsStayInside) {
    dir_.write("secret", "outside");
    dir_.write("root/etc/inside", "x");
    ASSERT_EQ(::symlink(dir_.path().c_str(), dir_.at("root/absolute").c_str()), 0);
    ASSERT_EQ(::symlink("../../..", dir_.at("root/up").c_str()), 0);
    ASSERT_EQ(::symlink("/etc", dir_.at("root/conf").c_str()), 0);
    EXPECT_EQ(km::open_for_reading("/absolute/secret"), -1);
    EXPECT_EQ(km::open_for_reading("/../secret"), -1);
    struct stat about {};
    EXPECT_EQ(km::look_at("/up/secret", about), 0);
    EXPECT_EQ(km::look_at("/conf/inside", about), 1); // an absolute link starts at the root
    const int fd = km::open_for_reading("/conf/inside");
    EXPECT_GE(fd, 0);
    ::close(fd);
}

TEST_F(TargetRoot, BadPathsAreRefused) {
    for (const std::string& path : {std::string("relative"), std::string(""), std::string("/a/.."),
                                    std::string("/a/."), std::string("/a\0b", 4)})
        EXPECT_EQ(km::locate(path).error, EINVAL) << path;
    EXPECT_EQ(km::locate("/none/x").error, ENOENT);
    EXPECT_TRUE(km::locate("/").found());
}

TEST_F(TargetRoot, ParentsAreMadeFromTheOutside) {
    int error = 0;
    const auto missing = km::missing_parents("/a/b/c/file", error);
    ASSERT_EQ(missing.size(), 3u);
    EXPECT_EQ(missing.front(), "/a");
    for (const auto& parent : missing)
        EXPECT_EQ(km::make_directory(parent, 0750), 1);
    EXPECT_TRUE(km::missing_parents("/a/b/c/file", error).empty());
    EXPECT_EQ(km::make_directory("/a", 0700), 1);
    dir_.write("root/plain", "");
    EXPECT_EQ(km::make_directory("/plain", 0700), 0);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(km::flush_touched(), 1);
}

TEST_F(TargetRoot, ReplaceAndRemoveLeaveNoSecondName) {
    dir_.write("root/d/old", "old");
    dir_.write("root/d/.new", "new");
    const km::place where = km::locate("/d/old");
    ASSERT_TRUE(where.found());
    EXPECT_EQ(km::may_write_in(where), 1);
    EXPECT_EQ(km::replace_name(where, ".new"), 1);
    EXPECT_EQ(dir_.read("root/d/old"), "new");
    EXPECT_EQ(km::remove_name("/d", true), 0); // not empty
    EXPECT_EQ(km::remove_name("/d/old", false), 1);
    EXPECT_EQ(km::remove_name("/d/old", false), 1);
    EXPECT_EQ(km::remove_name("/d", true), 1);
    EXPECT_EQ(km::remove_name("/none/x", false), 1);
    // The directory is gone: no stale handle may find it.
    EXPECT_FALSE(km::locate("/d/x").found());
}
