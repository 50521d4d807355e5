// Files that a second processor wrote before their turn: what stands in the end is the same.
#include "files_ahead.h"
#include "many_files.h"

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>

using namespace km_test;

namespace {

constexpr int files = 12;

class FilesAhead : public ManyFiles {
  protected:
    void SetUp() override {
        ManyFiles::SetUp();
        build_many(files, files);
    }
};

} // namespace

TEST_F(FilesAhead, StandAsThePackageHasThem) {
    play("install = 0 IC--- -");
    expect_all_in_place();
    play("verify = 0 IC--- -; remove = 0 none before");
}

// By other files, by links, by what is the same already, and by what a cut run left.
TEST_F(FilesAhead, ReplaceWhatStandsThere) {
    for (int i = 0; i < files; i += 2)
        add_file("target" + path_of(i), "an older one", 0600);
    add_link("target" + path_of(3), "f10");
    add_file("target" + path_of(5), text_of_file(5), modes[1], packed_at);
    for (const auto& name : left_by_a_cut_run_)
        add_file("target" + name, "half a", 0600);
    play("install u = 0 ICU-- -");
    expect_all_in_place();
    play("undo = 0 none -");
    EXPECT_FALSE(fs::exists(dir_.at("target") + path_of(1)));
    EXPECT_TRUE(fs::is_symlink(dir_.at("target") + path_of(3)));
}

#ifdef KM_KILL_POINTS // a release build has none
TEST_F(FilesAhead, LeaveNothingBehindAKill) {
    for (const char* point : {"file.before_name", "file.before_rename"}) {
        play(std::string("kill ") + point + " install; install f = 0 IC--- -");
        expect_all_in_place();
        play("remove = 0 none before");
    }
}
#endif

// Files whose directory stands, on a file system that makes such files.
TEST_F(FilesAhead, KnowWhatTheyWereMadeFor) {
    using when = km::entry_work::when;
    km::files_ahead ahead;
    stores all(dir_.at("store"));
    std::unique_ptr<km::unzipping_channel> data;
    const auto package = from_package_file(all, data);
    ASSERT_TRUE(package);
    EXPECT_EQ(ahead.is_due("d/00000002"), when::later); // the walk is not there yet
    EXPECT_TRUE(ahead.come_to(*package, km::locate("/etc/x"), true));
    EXPECT_EQ(ahead.is_due("d/00000002"), when::now);
    EXPECT_EQ(ahead.work("d/00000002", "some bytes"), nullptr); // no directory
    EXPECT_EQ(ahead.is_due("d/00000002"), when::later);
    fs::create_directories(dir_.at("target/opt/many"));
    EXPECT_TRUE(ahead.come_to(*package, km::locate(path_of(0)), true));
    EXPECT_FALSE(ahead.come_to(*package, km::locate(path_of(1)), true));
    EXPECT_EQ(ahead.is_due("d/00000002"), when::now);
    EXPECT_EQ(ahead.is_due("d/00000099"), when::never);
    EXPECT_EQ(ahead.is_due("SoftwarePackage"), when::never);
    const auto made = ahead.work("d/00000002", "some bytes");
    const auto* file = dynamic_cast<const km::nameless_file*>(made.get());
    ASSERT_TRUE(file);
    struct stat about {};
    ASSERT_EQ(::fstat(file->file.get(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777, modes[1]);
    EXPECT_EQ(about.st_size, 10);
    EXPECT_EQ(about.st_nlink, 0U);
    EXPECT_EQ(about.st_mtim.tv_sec, packed_at);
    EXPECT_TRUE(km::is_directory(km::locate(path_of(0)), file->made_in));
    EXPECT_FALSE(km::is_directory(km::locate("/etc"), file->made_in));
    km::end_data_ahead();
    const km::open_file nowhere(::open("/proc", O_PATH | O_DIRECTORY));
    EXPECT_EQ(km::write_nameless(nowhere.get(), file->given, "some bytes"), nullptr);
    // What was not to be written once is not tried again.
    rlimit usual{};
    ::getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit none{0, usual.rlim_max};
    const auto before = ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &none);
    const auto failed = ahead.work("d/00000002", "some bytes");
    ::setrlimit(RLIMIT_FSIZE, &usual);
    ::signal(SIGXFSZ, before);
    EXPECT_EQ(failed, nullptr);
    EXPECT_EQ(ahead.is_due("d/00000002"), when::never);
}
