// The first definition of a package, from a tree.
#include "init_definition.h"

#include "support/has.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <sstream>

using kmhost::outcome;

namespace {

struct Init : testing::Test {
    outcome run(const std::string& prefix = "", bool force = false) {
        outcome result;
        kmhost::init_definition({dir.at("my tree"), dir.at("out.spd"), prefix, force}, result);
        return result;
    }
    // The definition without comments, blank lines and line ends.
    std::string written() const {
        std::istringstream lines(dir.read("out.spd"));
        std::string all, line;
        while (std::getline(lines, line))
            if (const auto at = line.find_first_not_of(' ');
                at != std::string::npos && line[at] != '#')
                all += (all.empty() ? "" : " ") + line.substr(at);
        return all;
    }
    km_test::scratch_dir dir;
};

} // namespace

TEST_F(Init, WritesAStanzaForEachObject) {
    dir.write("my tree/b/f", "x");
    dir.write("my tree/b c", "x");
    dir.write("my tree/a\n{}", "x");
    std::filesystem::create_symlink("$x\n", dir.at("my tree/b/l"));
    for (const auto& [name, mode] :
         {std::pair("", 0755), {"b", 02711}, {"b/f", 0640}, {"b c", 04755}, {"a\n{}", 0}})
        std::filesystem::permissions(dir.at(std::string("my tree/") + name),
                                     std::filesystem::perms(mode));
    const std::string inner =
        R"(source = "my tree/a\n{}" mode = 0000 } add_file { path = /p/b/f source = "my tree/b/f" mode = 0640 } )"
        R"(add_file { path = "/p/b c" source = "my tree/b c" mode = 4755 } )"
        R"(add_link { path = /p/b/l target = "$x\n" } })";
    const std::string head = R"(kmspd 1.0 package { name = my-tree version = 1.0 title = my-tree )";
    EXPECT_EQ(run("/p///").exit, kmhost::exit_done);
    EXPECT_EQ(written(), head + "add_directory { path = /p mode = 0755 } " +
                             "add_directory { path = /p/b mode = 2711 } " +
                             R"(add_file { path = "/p/a\n{}" )" + inner);
    // The root of the machine is no directory of ours.
    EXPECT_EQ(run("/", true).exit, kmhost::exit_done);
    EXPECT_EQ(written().find(head + "add_directory { path = /b mode"), 0u) << written();
    for (const auto& [prefix, path] :
         {std::pair("", "/opt/my-tree/b "), {"$(there)", "$(there)/b "}, {"/a b", "\"/a b/b\" "}}) {
        const outcome result = run(prefix, true);
        EXPECT_EQ(result.package->name, "my-tree");
        EXPECT_EQ(result.data["files"], 3);
        EXPECT_HAS(written(), "add_directory { path = " + std::string(path));
    }
}

TEST_F(Init, RefusesAndLeavesTheOutputAsItWas) {
    dir.write("out.spd", "mine");
    std::filesystem::create_directory(dir.at("my tree"));
    EXPECT_EQ(run().exit, kmhost::exit_failed);
    for (const char* prefix :
         {"here", "$here", "/a/../b", "/..", "/\xff", "/\xc0\xaf", "/\xed\xa0\x80"})
        EXPECT_EQ(run(prefix, true).exit, kmhost::exit_usage) << prefix;
    for (const char* target : {"$(x)", "\xff"}) {
        std::filesystem::create_symlink(target, dir.at("my tree/l"));
        EXPECT_EQ(run("", true).exit, kmhost::exit_failed) << target;
        std::filesystem::remove(dir.at("my tree/l"));
    }
    EXPECT_EQ(dir.read("out.spd"), "mine");
    std::filesystem::create_directory_symlink(dir.path(), dir.at("my tree/all"));
    EXPECT_EQ(run("", true).exit, kmhost::exit_done); // a link, which is not followed

    outcome inside; // a definition in its own tree is no part of it
    const std::string place = dir.write("my tree/in.spd", "old");
    kmhost::init_definition({dir.at("my tree"), place, "", true}, inside);
    EXPECT_EQ(inside.data["files"], 0);
    outcome none;
    kmhost::init_definition({dir.at("none"), dir.at("none.spd"), "", false}, none);
    EXPECT_EQ(none.exit, kmhost::exit_not_found);
    EXPECT_FALSE(dir.exists("none.spd"));
}
