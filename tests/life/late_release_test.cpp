// Files that go while their blocks are given back by a second processor.
#include "late_release.h"
#include "support/scratch.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t large = 4 << 20;

class LateRelease : public ::testing::Test {
  protected:
    std::size_t descriptors() {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
    }
    // Whether the file was held while its name went.
    bool remove_one(int directory, int number, std::int64_t bytes) {
        const std::string name = "f" + std::to_string(number);
        const int made = ::openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_GE(made, 0);
        EXPECT_EQ(::ftruncate(made, bytes), 0);
        ::close(made);
        const int held = km::hold_for_release(directory, name.c_str(), bytes);
        EXPECT_EQ(::unlinkat(directory, name.c_str(), 0), 0);
        km::release_late(held, bytes);
        return held >= 0;
    }
    km_test::scratch_dir dir_;
};

} // namespace

// A large one is worth it by itself, small ones behind a run of them.
TEST_F(LateRelease, HoldsWhatIsWorthIt) {
    const int directory = ::open(dir_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    km::finish_releases();
    EXPECT_FALSE(remove_one(directory, 0, 100));
    EXPECT_TRUE(remove_one(directory, 1, large));
    km::finish_releases();
    int held = 0;
    for (int i = 0; i < 200; ++i)
        held += remove_one(directory, i, 100);
    EXPECT_GT(held, 100);
    EXPECT_LT(held, 200);
    km::finish_releases();
    ::close(directory);
}

// More than are held at a time, in directories that go between them; nothing stays open.
TEST_F(LateRelease, GivesAllBack) {
    km::finish_releases();
    const auto before = descriptors();
    for (int round = 0; round < 30; ++round) {
        const std::string path = dir_.at("d" + std::to_string(round));
        ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
        const int directory = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int i = 0; i < 20; ++i)
            remove_one(directory, i, i % 3 ? large : 100);
        ::close(directory);
        const km::release_pause pause;
        EXPECT_EQ(::rmdir(path.c_str()), 0);
    }
    km::finish_releases();
    EXPECT_EQ(descriptors(), before);
}
