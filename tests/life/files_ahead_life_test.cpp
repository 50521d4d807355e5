// Files that a second processor wrote before their turn: what stands in the end is the same.
#include "files_ahead.h"
#include "life_fixture.h"
#include "temporary_name.h"
#include "zip_entry.h"

using namespace km_test;

namespace {

constexpr int files = 12;

std::string path_of(int i) { return "/opt/many/f" + std::to_string(10 + i); }

// Gives the other thread all the time that it may want.
class rest : public trap {
  public:
    rest() : trap("rest") {}
    codable* clone() const override { return new rest(*this); }
    const char* codable_name() const override { return "com.ombrel.sd.cmObjects.KmtRest"; }
    void do_execute(int, int) override {
        ::usleep(50'000);
        result = success;
    }
};
km::codable* make_rest() { return new rest; }

class FilesAhead : public LifeTest {
  protected:
    void SetUp() override {
        LifeTest::SetUp();
        km::library_loader::instance()->put(
            ustring("make_KmtRest"),
            km::func_ptr(reinterpret_cast<void*>(reinterpret_cast<void (*)()>(&make_rest))));
        for (int i = 0; i < files; ++i)
            add_file("source" + path_of(i), text_of_file(i), modes[i % 4], packed_at);
        km::cm_package package;
        package.messages = &messages_;
        package.name = u("pkg");
        package.version = u("1");
        auto* tree = new km::cm_composite_command(1);
        package.add(tree, nullptr);
        add<km::km_directory>(*tree, km::new_add_directory, "/opt/many");
        for (int i = 0; i < files; ++i) {
            add<km::km_file>(*tree, km::new_add_file, path_of(i));
            left_by_a_cut_run_.push_back("/opt/many/" +
                                         km::temporary_name_of(path_of(i), last_index(), &package));
            if (i == 0)
                tree->add(new rest, nullptr);
        }
        km::file_output_channel out(pathname(dir_.at("pkg.spb").c_str()), 0);
        km::zipping_channel zip(&out);
        zip.set_method(km::zip_entry::deflated); // nothing is inflated ahead of what is stored
        km::restart_data_sequence();
        km::set_target_root(nullptr); // the machine that packs
        ASSERT_EQ(package.save(&zip), 0) << text_of(messages_);
        out.close();
        ASSERT_EQ(km::set_target_root(dir_.at("target").c_str()), 1);
    }
    static std::string text_of_file(int i) { return std::string(1000, static_cast<char>('a' + i)); }
    static int last_index() {
        const trap next; // takes a number
        return next.command_index - 1;
    }
    void expect_all_in_place() {
        auto should = picture_of(dir_.at("source/opt/many"));
        EXPECT_EQ(difference(picture_of(dir_.at("target/opt/many")), should), "");
    }

    static constexpr mode_t modes[] = {0644, 04755, 0400, 02770};
    km::spmessage messages_;
    std::vector<std::string> left_by_a_cut_run_;
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

// The directory in which the walk is, or a file system that makes no such files.
TEST_F(FilesAhead, KnowWhatTheyWereMadeFor) {
    km::files_ahead ahead;
    stores all(dir_.at("store"));
    std::unique_ptr<km::unzipping_channel> data;
    const auto package = from_package_file(all, data);
    ASSERT_TRUE(package);
    fs::create_directories(dir_.at("target/opt/many"));
    EXPECT_FALSE(ahead.is_due("d/00000002")); // the walk is not there yet
    EXPECT_TRUE(ahead.come_to(*package, km::locate(path_of(0)), true));
    EXPECT_FALSE(ahead.come_to(*package, km::locate(path_of(1)), true));
    EXPECT_TRUE(ahead.is_due("d/00000002"));
    EXPECT_FALSE(ahead.is_due("d/00000099"));
    EXPECT_FALSE(ahead.is_due("SoftwarePackage"));
    const auto made = ahead.work("d/00000002", "some bytes");
    const auto* file = dynamic_cast<const km::nameless_file*>(made.get());
    ASSERT_TRUE(file);
    struct stat about {};
    ASSERT_EQ(::fstat(file->file.get(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777, modes[1]);
    EXPECT_EQ(about.st_size, 10);
    EXPECT_EQ(about.st_nlink, 0U);
    EXPECT_EQ(about.st_mtim.tv_sec, packed_at);
    EXPECT_TRUE(ahead.come_to(*package, km::locate("/etc/x"), false));
    EXPECT_FALSE(ahead.is_due("d/00000002"));
    EXPECT_EQ(ahead.work("d/00000002", "some bytes"), nullptr);
    km::end_data_ahead();
    ASSERT_EQ(km::set_target_root("/proc"), 1);
    km::files_ahead nowhere;
    EXPECT_TRUE(nowhere.come_to(*package, km::locate("/opt"), false));
    EXPECT_EQ(nowhere.work("d/00000002", "some bytes"), nullptr);
}
