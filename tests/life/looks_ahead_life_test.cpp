// Files that a second processor looked at before their turn: what is removed is the same.
#include "late_release.h"
#include "looks_ahead.h"
#include "many_files.h"
#include "tree_files.h"

using namespace km_test;

namespace {

constexpr int files = 200;
constexpr int rests = 70; // behind files 0, 70 and 140

std::size_t descriptors() {
    std::size_t count = 0;
    for (const auto& one : fs::directory_iterator("/proc/self/fd"))
        count += !one.path().empty();
    return count;
}

class LooksAhead : public ManyFiles {
  protected:
    void SetUp() override {
        ManyFiles::SetUp();
        build_many(files, rests);
        play("install = 0 IC--- -");
    }
    std::string target(int i) { return dir_.at("target") + path_of(i); }
    void edit(int i) { std::ofstream(target(i), std::ios::app) << "more"; }
    void expect_left(const std::set<int>& left) {
        for (int i = 0; i < files; ++i)
            EXPECT_EQ(fs::exists(fs::symlink_status(target(i))), left.count(i) == 1) << i;
    }
};

} // namespace

// Edited, of another kind and gone, in the middle of what is looked at ahead.
TEST_F(LooksAhead, SeeWhatStands) {
    for (int i : {20, 100, 199})
        edit(i);
    fs::remove(target(101));
    fs::create_symlink("f10", target(101));
    fs::remove(target(102));
    const auto before = descriptors();
    play("remove = 0 none -");
    expect_left({20, 100, 101, 199});
    EXPECT_LE(descriptors(), before + 8); // directories are kept open
}

// Files that a command changes while it runs are looked at behind it.
TEST_F(LooksAhead, AreNotMadeAcrossOtherCommands) {
    rest::act = [this](int action) {
        if (action == km::a_reverse && fs::exists(target(139)))
            for (int i : {139, 136, 110})
                edit(i);
    };
    play("remove = 0 none -");
    rest::act = nullptr;
    expect_left({110, 136, 139});
}

TEST_F(LooksAhead, ServeWhileTheyAreFresh) {
    stores all(dir_.at("store"));
    std::unique_ptr<km::unzipping_channel> data;
    const auto package = from_package_file(all, data);
    ASSERT_TRUE(package);
    std::vector<const km::km_file*> order;
    km::each_file(*package, [&](const km::km_file& file) { order.insert(order.begin(), &file); });
    km::ahead_look look;
    const auto take = [&](int i, long serves_for = km::look_serves_for) {
        return take_look_ahead(*package, *order[i], true, look, serves_for);
    };
    EXPECT_FALSE(take(0)); // nobody was asked before
    int taken = 0, at = 0;
    for (; !taken && at < 50; ++at) {
        ::usleep(20'000);
        taken += take(at, 60'000); // also where the machine is busy
    }
    ASSERT_TRUE(taken);
    struct stat about {};
    ASSERT_EQ(::lstat(target(files - at).c_str(), &about), 0);
    EXPECT_EQ(look.about.st_ino, about.st_ino);
    if (look.held >= 0) {
        EXPECT_EQ(::fstat(look.held, &about), 0);
        EXPECT_EQ(look.about.st_ino, about.st_ino);
        ::close(look.held);
    }
    ::usleep(100'000);
    EXPECT_FALSE(take(at));
    const auto before = descriptors();
    km::finish_releases();
    EXPECT_LT(descriptors(), before);
    km::end_data_ahead();
}
