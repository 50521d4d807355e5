// The normal form of paths and the rules that work on it.
#include "pathname.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using km::pathname;
using km::ustring;

namespace {
std::string text(const pathname& path) { return path.mbcs_str(); }
} // namespace

TEST(Pathname, NormalForm) {
    const char* cases[][2] = {{"  C:\\dir\\  ", "C:/dir"},
                              {"C:", "C:/"},
                              {"C:/", "C:/"},
                              {"/", "/"},
                              {"//", "//"},
                              {"a/b///", "a/b"},
                              {"//host/x/", "//host/x"},
                              {"C:///", "C:/"},
                              {"$(a\\b)\\c\\", "$(a\\b)/c"},
                              {"", ""}};
    for (const auto& one : cases)
        EXPECT_EQ(text(pathname(one[0])), one[1]) << one[0];
}

TEST(Pathname, ParentsEndAtTheRoot) {
    const char* cases[][2] = {{"/a", "/"}, {"//a", "//"}, {"a/b", "a"},
                              {"a", ""},   {"/", "/"},    {"", ""}};
    for (const auto& one : cases)
        EXPECT_EQ(text(pathname(one[0]).get_parent()), one[1]) << one[0];
}

TEST(Pathname, AppendKeepsExactlyOneSeparatorBetween) {
    EXPECT_EQ(text(pathname("/a") + ustring(" b/ ")), "/a/b/");
    EXPECT_EQ(text(pathname("/") + ustring("/b")), "/b");
    EXPECT_EQ(text(pathname("") + ustring("b")), "b");
    EXPECT_EQ(text(pathname("a") + ustring("")), "a");
}

TEST(Pathname, MakeAbsoluteRemovesDots) {
    const char* cases[][3] = {{"b/../c/./d", "/base", "/base/c/d"},
                              {"/x//y/..", "/base", "/x"},
                              {"../../up", "/a/b", "/up"},
                              {"/", "/base", "/"},
                              {"", "/base", "/base/"}};
    for (const auto& one : cases) {
        pathname path(one[0]);
        path.make_absolute(pathname(one[1]));
        EXPECT_EQ(text(path), one[2]) << one[0];
    }
    pathname relative("/c:/d/");
    relative.make_relative();
    EXPECT_EQ(text(relative), "c_/d");
}

TEST(Pathname, SubpathsAreWholeComponents) {
    EXPECT_TRUE(pathname("/a/b/c").is_subpath_of(pathname("/a/b")));
    EXPECT_TRUE(pathname("/a/b").is_subpath_of(pathname("/a/b")));
    EXPECT_FALSE(pathname("/a/bc").is_subpath_of(pathname("/a/b")));
    EXPECT_TRUE(pathname("/a").is_subpath_of(pathname("/")));
    EXPECT_FALSE(pathname("/a").is_subpath_of(pathname("/a/b")));
}

TEST(Pathname, CommonPartsGoByTheLengthOfTheFirst) {
    auto without = [](const char* path, const char* first, const char* second) {
        pathname whole(path), a(first), b(second ? second : "");
        whole.remove_common_part(&a, second ? &b : nullptr);
        return text(whole);
    };
    EXPECT_EQ(without("/src/dir/file", "/src/dir", "/src"), "/file");
    EXPECT_EQ(without("/src/file", "/other", "/src"), "/file");
    EXPECT_EQ(without("/abc/file", "/xyz", nullptr), "/file");
    EXPECT_EQ(without("/ab", "/longer/than", nullptr), "");
    pathname same("/a");
    same.remove_common_part(nullptr, nullptr);
    EXPECT_EQ(text(same), "/a");
}

TEST(Pathname, Extensions) {
    EXPECT_EQ(std::string(pathname("/a.b/c").get_extension().mbcs_str()), "");
    EXPECT_EQ(std::string(pathname("/a/c.tar.gz").get_extension().mbcs_str()), ".gz");
    pathname path("/a/c.txt");
    path.set_extension(ustring(""));
    path.set_extension(ustring(".bak"));
    EXPECT_EQ(text(path), "/a/c.txt.bak");
    path.change_extension(ustring(""));
    EXPECT_EQ(text(path), "/a/c.txt.");
}

TEST(Pathname, LongFormatIsMoreThanEightAndThree) {
    const struct {
        const char* path;
        bool is_long;
    } cases[] = {{"/short/name.txt", false}, {"/muchlonger/n", true},    {"/a/name.html", true},
                 {"/a/ninechars", true},     {"C:/autoexec.bat", false}, {"", false}};
    for (const auto& one : cases)
        EXPECT_EQ(pathname(one.path).is_long_format(), one.is_long) << one.path;
}

TEST(Pathname, RelativePathsLieBelowTheCurrentDirectory) {
    char* here = ::getcwd(nullptr, 0);
    EXPECT_EQ(text(pathname("x").get_absolute_path()), std::string(here) + "/x");
    std::free(here);
}
