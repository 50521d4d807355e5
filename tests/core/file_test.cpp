// Files, handles and durable replacement.
#include "durable.h"
#include "file.h"
#include "file_info.h"
#include "fileio.h"

#include "support/scratch.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using km::file;
using km::pathname;
using km::ustring;
using km::vector;

namespace {
struct File : testing::Test {
    file at(const std::string& name) const { return file(pathname(dir.at(name).c_str())); }
    km_test::scratch_dir dir;
};
using FileHandle = File;
using Durable = File;
} // namespace

TEST_F(File, ExistenceTakesUnknownTroubleForThere) {
    dir.write("plain", "x");
    EXPECT_EQ(at("plain").exists(), 1);
    file missing = at("missing");
    EXPECT_EQ(missing.exists(), 0);
    EXPECT_EQ(missing.get_error(), ENOENT);
    EXPECT_EQ(at("plain/below").exists(), 1); // ENOTDIR
    EXPECT_EQ(file().exists(), 0);
    EXPECT_EQ(at("a/b/c").can_create_path(), 1);
    EXPECT_EQ(at("plain").can_create_path(), 0);
}

TEST_F(File, RemovalNeverFollowsALink) {
    dir.write("kept/inside", "x");
    ::mkdir(dir.at("tree").c_str(), 0755);
    ASSERT_EQ(::symlink(dir.at("kept").c_str(), dir.at("tree/link").c_str()), 0);
    EXPECT_EQ(at("tree").remove(1), 1);
    EXPECT_FALSE(dir.exists("tree"));
    EXPECT_TRUE(dir.exists("kept/inside"));
    EXPECT_EQ(at("tree").remove(1), 1);
    EXPECT_EQ(at("kept").remove(0), 0); // not empty
}

TEST_F(File, RemovalByPatternTakesWhatBecameEmpty) {
    dir.write("d/a.tmp", "");
    dir.write("d/keep.txt", "");
    dir.write("d/sub/b.tmp", "");
    EXPECT_EQ(at("d").remove(ustring("*.tmp"), 1), 1);
    EXPECT_FALSE(dir.exists("d/sub"));
    EXPECT_TRUE(dir.exists("d/keep.txt"));
}

TEST_F(File, CopyKeepsContentAndModeAndGoesOneLevelDown) {
    dir.write("src/one", std::string(100000, 'x'));
    dir.write("src/sub/two", "y");
    ::chmod(dir.at("src/one").c_str(), 0640);
    file target = at("dst");
    EXPECT_EQ(at("src").copy(target, 1), 1);
    EXPECT_EQ(dir.read("dst/one").size(), 100000u);
    EXPECT_TRUE(dir.exists("dst/sub"));
    EXPECT_FALSE(dir.exists("dst/sub/two"));
    EXPECT_EQ(dir.mode("dst/one"), 0640u);
}

TEST_F(File, AFullDiskLeavesNoPartOfACopy) {
    dir.write("src", std::string(5000, 'x'));
    file full(pathname("/dev/full"));
    if (!full.exists())
        return;
    // The device itself cannot be removed by a copy that failed: it is stood for by a link.
    ASSERT_EQ(::symlink("/dev/full", dir.at("target").c_str()), 0);
    file target = at("target");
    EXPECT_EQ(at("src").copy(target, 0), 0);
    EXPECT_FALSE(dir.exists("target"));
    EXPECT_EQ(dir.read("src").size(), 5000u);
}

TEST_F(File, RenameFallsBackToACopyOnlyWhenAsked) {
    dir.write("a", "content");
    file moved = at("a");
    EXPECT_EQ(moved.rename_to(pathname(dir.at("none/b").c_str()), 0), 0);
    EXPECT_EQ(moved.rename_to(pathname(dir.at("b").c_str()), 0), 1);
    EXPECT_EQ(moved.get_path(), pathname(dir.at("b").c_str()));
    EXPECT_EQ(dir.read("b"), "content");
}

TEST_F(File, ItsOwnNameAsTargetLosesNothing) {
    dir.write("a", "content");
    ASSERT_EQ(::link(dir.at("a").c_str(), dir.at("b").c_str()), 0);
    file a = at("a"), b = at("b");
    EXPECT_EQ(a.copy(a, 0), 1);
    EXPECT_EQ(a.copy(b, 0), 1);
    EXPECT_EQ(a.rename_to(a.get_path(), 1), 1);
    EXPECT_EQ(dir.read("a"), "content");
}

TEST_F(File, AskingForALockGivesTheModeBack) {
    const std::string program = dir.at("program");
    ASSERT_EQ(std::system(("cp /bin/sleep " + program).c_str()), 0);
    ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
    constexpr uid_t other = 65534; // the rights of root are asked nowhere
    ASSERT_TRUE(::getuid() != 0 || ::chown(program.c_str(), other, other) == 0);
    ASSERT_EQ(::chmod(program.c_str(), 0555), 0);
    int started[2];
    ASSERT_EQ(::pipe2(started, O_CLOEXEC), 0);
    const pid_t running = ::fork();
    if (running == 0) {
        ::execl(program.c_str(), "sleep", "60", static_cast<char*>(nullptr));
        ::_exit(1);
    }
    ::close(started[1]);
    char none;
    EXPECT_EQ(::read(started[0], &none, 1), 0); // the program runs
    ::close(started[0]);
    const pid_t asking = ::fork();
    if (asking == 0) {
        if (::getuid() == 0 && (::setgid(other) != 0 || ::setuid(other) != 0))
            ::_exit(2);
        ::_exit(file(pathname(program.c_str())).is_locked() == 1 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(asking, &status, 0);
    EXPECT_EQ(status, 0);
    ::kill(running, SIGKILL);
    ::waitpid(running, nullptr, 0);
    EXPECT_EQ(dir.mode("program"), 0555u);
}

TEST_F(File, ListsAndInfosAgree) {
    dir.write("f1", "12345");
    dir.write("d/x", "");
    ASSERT_EQ(::symlink(dir.at("d").c_str(), dir.at("link").c_str()), 0);
    vector names, infos;
    file whole(pathname(dir.path().c_str()));
    EXPECT_EQ(whole.list(names, ustring("*")), 1);
    EXPECT_EQ(names.size(), 3);
    EXPECT_EQ(whole.list_file_info(infos, ustring("*")), 1);
    for (int i = 0; i < infos.size(); ++i) {
        const auto* info = infos.at<km::file_info>(i);
        EXPECT_EQ(info->is_directory(), std::string(info->name) == "d") << info->name;
        EXPECT_EQ(info->is_link(), std::string(info->name) == "link");
    }
    EXPECT_EQ(at("f1").list(names, ustring("*")), 0);
}

TEST_F(File, PortableAttributesComeBack) {
    dir.write("f", "");
    unsigned long attributes = 0, mode = 0;
    long owner = -1, group = -1;
    file f = at("f");
    ASSERT_EQ(f.set_file_attributes(0754), 1);
    ASSERT_EQ(f.get_attributes(attributes, owner, group), 1);
    EXPECT_EQ(attributes & 0x4000u, 0x4000u);
    f.set_file_attributes(0);
    f.set_attributes(attributes);
    f.get_file_attributes(mode);
    EXPECT_EQ(mode & 07777, 0754u);
    EXPECT_EQ(owner, static_cast<long>(::getuid()));
}

TEST_F(File, TemporaryNamesCountDownAndSkip) {
    const pathname work(dir.at("work").c_str());
    std::unique_ptr<file> first(file::get_temp_name(work, ustring("PP"), 1, nullptr));
    ASSERT_TRUE(first);
    EXPECT_EQ(std::string(first->get_path().get_file().mbcs_str()), "PP999969");
    vector skip;
    skip.push_back(new pathname(work + ustring("PP999968")));
    std::unique_ptr<file> second(file::get_temp_name(work, ustring("PP"), 1, &skip));
    ASSERT_TRUE(second);
    EXPECT_FALSE(second->get_path() == first->get_path());
    EXPECT_FALSE(second->get_path() == *skip.at<pathname>(0));
    EXPECT_EQ(file::get_temp_name(work, ustring("eightcha"), 1, nullptr), nullptr);
    std::unique_ptr<file> directory(file::get_temp_name(work, ustring("sevench"), 0, nullptr));
    ASSERT_TRUE(directory);
    EXPECT_TRUE(directory->is_directory());
}

TEST_F(FileHandle, TheErrorStateSticks) {
    km::file_handle handle(pathname(dir.at("f").c_str()));
    EXPECT_EQ(handle.write("hello", 5), 1);
    EXPECT_EQ(handle.start(), 1);
    char buffer[8] = "";
    EXPECT_EQ(handle.read(buffer, 8), 1);
    EXPECT_EQ(handle.get_bytes_read(), 5u);
    EXPECT_EQ(handle.read(buffer, 8), 1); // the end is no failure
    EXPECT_EQ(handle.get_bytes_read(), 0u);
    km::file_handle copy(handle);
    EXPECT_EQ(copy.tell(), 5);
    EXPECT_EQ(handle.read(nullptr, 1), 0);
    EXPECT_EQ(handle.get_state(), km::file_handle::null_buffer);
    EXPECT_EQ(handle.write("x", 1), 0);
    EXPECT_EQ(copy.chsize(2), 1);
    EXPECT_EQ(copy.filelength(), 2);
    EXPECT_EQ(copy.flush(), 1);
    km::file_handle missing(pathname(dir.at("none/f").c_str()), O_RDONLY);
    EXPECT_EQ(missing.get_state(), km::file_handle::open_failed);
    EXPECT_EQ(missing.get_system_error(), ENOENT);
}

TEST_F(Durable, AFailedWriteLeavesTheOldContentAndNoLitter) {
    dir.write("f", "old");
    ::chmod(dir.at("f").c_str(), 0604);
    ASSERT_EQ(::symlink("f", dir.at("link").c_str()), 0);
    const pathname link(dir.at("link").c_str());
    auto fails = [](int descriptor) {
        km::write_fully(descriptor, "ne", 2);
        errno = ENOSPC;
        return 0;
    };
    EXPECT_EQ(km::replace_durably(link, 0600, fails), 0);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(dir.read("f"), "old");
    // A foreign file under the temporary name is not written through.
    dir.write("foreign", "theirs");
    const std::string temporary = dir.at("f.km~" + std::to_string(::getpid()));
    ASSERT_EQ(::link(dir.at("foreign").c_str(), temporary.c_str()), 0);
    auto writes = [](int descriptor) { return km::write_fully(descriptor, "new", 3); };
    EXPECT_EQ(km::replace_durably(link, 0600, writes), 1);
    EXPECT_EQ(dir.read("f"), "new");
    EXPECT_EQ(dir.read("foreign"), "theirs");
    EXPECT_TRUE(at("link").is_link());
    vector names;
    file(pathname(dir.path().c_str())).list(names, ustring("*"));
    EXPECT_EQ(names.size(), 3);
    EXPECT_EQ(dir.mode("f"), 0604u);
}
