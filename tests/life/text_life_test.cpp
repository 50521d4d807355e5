// The life of packages that put texts into files of others.
#include "life_fixture.h"

#include "support/text_definition.h"
#include "text_object.h"

using namespace km_test;

namespace {

// The files that are edited, one after the other; "a" and so on name what packages make of them.
constexpr const char* base = "127.0.0.1 here\n  # c\nPATH=\"/bin\"[main]\r\nport = 1 ; d\r\n";
constexpr const char* with_a = "127.0.0.1 here\n10.0.0.1 app\n  # "
                               "c\nPATH=\"/opt:/bin\"[main]\r\nport = 80 ; d\r\n[new]\r\nk = v\r\n";
constexpr const char* with_c = "127.0.0.1 here\n  # c\nPATH=\"/bin\"[main]\r\nport = 90 ; d\r\n";
constexpr const char* a_then_c =
    "127.0.0.1 here\n10.0.0.1 app\n  # c\nPATH=\"/opt:/bin\"[main]\r\nport = 90 ; d\r\n[new]\r\nk "
    "= v\r\n";

class TextLife : public LifeTest, public testing::WithParamInterface<const char*> {
  protected:
    void SetUp() override {
        LifeTest::SetUp();
        dir_.write("target/etc/hosts", "127.0.0.1 here\n  # c\n");
        dir_.write("target/etc/environment", "PATH=\"/bin\"");
        dir_.write("target/etc/app.ini", "[main]\r\nport = 1 ; d\r\n");
        const std::vector<std::string> texts = {
            "add_line path=/etc/hosts|text=10.0.0.1 app|position=4|pattern=127*",
            "add_token path=/etc/environment|name=PATH|token=/opt|position=1",
            "add_ini_item path=/etc/app.ini|section=main|key=port|value=80",
            "add_ini_item path=/etc/app.ini|section=new|key=k|value=v",
            "add_line path=/etc/made|create=1|text=only"};
        auto shared = texts;
        for (auto& one : shared)
            one += "|is_shared=1";
        build("a", texts);
        build("s", shared);
        build("t", shared);
        build("c", {"add_ini_item path=/etc/app.ini|section=main|key=port|value=90"});
        build("r", {"remove_line path=/etc/hosts|pattern=127*",
                    "remove_ini_item path=/etc/app.ini|section=main|key=port",
                    "remove_token path=/etc/environment|name=PATH|token=/bin"});
    }
    void build(const std::string& name, const std::vector<std::string>& texts) {
        km::cm_package package;
        package.name = u(name);
        package.version = u("1");
        for (const auto& one : texts)
            package.add(text_command(one).release(), nullptr);
        km::file_output_channel out(pathname(dir_.at(name + ".spb").c_str()), 0);
        km::zipping_channel zip(&out);
        ASSERT_EQ(package.save(&zip), 0);
        out.close();
    }

    // As a host does it, in a process's fresh state.
    int run(const std::string& op, const std::string& name, unsigned mode) {
        km::forget_made_directories();
        km::forget_room();
        km::forget_directories();
        stores all(dir_.at("store"));
        const bool from_file = op == "install" || op == "repair";
        km::unzipping_channel data(
            new km::file_input_channel(pathname(dir_.at(name + ".spb").c_str()), 0));
        data.set_skip_tail(0);
        data.get_next_entry();
        km::cm_package* read = nullptr;
        km::sp_object reader(&all.messages);
        if (from_file)
            reader.decode(read, &data, 1, km::sp_object::either);
        else if (const auto* entry = all.entry(name.c_str()))
            reader.decode(read, entry->profile_name, 1, km::sp_object::either);
        const std::unique_ptr<km::cm_package> package(read);
        if (!package)
            return -99;
        all.give(*package);
        if (from_file)
            package->input_channel = &data;
        const int result = LifeTest::run(*package, !from_file, op, mode);
        told_ = text_of(all.messages);
        if (!all.entry(name.c_str()))
            km::hand_over_made_directories(name, "1");
        return result;
    }
    std::string files() const {
        return dir_.read("target/etc/hosts") + dir_.read("target/etc/environment") +
               dir_.read("target/etc/app.ini");
    }
    // "OPERATION PACKAGE MODE = RESULT FILES", "lose" and "own": a user takes the line out, or had
    // put all of it in before.
    void play(const std::string& script) {
        static const std::map<std::string, const char*> pictures = {
            {"base", base}, {"A", with_a}, {"C", with_c}, {"AC", a_then_c}};
        std::istringstream steps(script);
        for (std::string one; std::getline(steps, one, ';') && !HasFatalFailure();) {
            SCOPED_TRACE("at" + one);
            std::istringstream words(one);
            std::string op, name, mode, equals, picture;
            int result = 0;
            words >> op >> name;
            if (op == "lose") {
                dir_.write("target/etc/hosts", "127.0.0.1 here\n  # c\n");
                continue;
            }
            if (op == "own") {
                dir_.write("target/etc/hosts", "127.0.0.1 here\n10.0.0.1 app\n  # c\n");
                dir_.write("target/etc/environment", "PATH=\"/opt:/bin\"");
                dir_.write("target/etc/app.ini", "[main]\r\nport = 80 ; d\r\n[new]\r\nk = v\r\n");
                dir_.write("target/etc/made", "only\n");
                continue;
            }
            words >> mode;
            if (mode == "=")
                mode.clear();
            else
                words >> equals;
            words >> result >> picture;
            ASSERT_EQ(run(op, name, mode_of(mode)), result) << told_;
            if (picture == "-")
                continue;
            EXPECT_EQ(files(), pictures.at(picture)) << told_;
            EXPECT_EQ(dir_.exists("target/etc/made"), picture[0] == 'A');
        }
        for (const auto& one : fs::directory_iterator(dir_.at("target/etc")))
            EXPECT_EQ(one.path().string().find(".km~"), std::string::npos) << one.path();
    }
};

TEST_P(TextLife, EndsAsTold) { play(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Ways, TextLife,
    testing::Values(
        "install a = 0 A; verify a = 0 A; install a = -1 A; remove a = 0 base",
        "install a u = 0 A; undo a = 0 base; install a u = 0 A; accept a = 0 A; remove a = 0 base",
        "install a t = 0 base; commit a = 0 A; remove a = 0 base",
        "install a t = 0 base; rollback a = 0 base; install a tcu = 0 A; undo a = 0 base",
        "install a tu = 0 base; commit a = 0 A; undo a = 0 base",
        "install a tw = 0 base; commit a = 0 A; undo a = 0 base",
        "install a = 0 A; remove a u = 0 base; verify a = 0 base; undo a = 0 A; verify a = 0 A; "
        "remove a = 0 base",
        "install a = 0 A; remove a t = 0 A; commit a = 0 base",
        "install a = 0 A; remove a tu = 0 A; rollback a = 0 A; remove a = 0 base",
        "install a = 0 A; lose; verify a = 9 -; repair a r = 0 A; verify a = 0 A; remove a = 0 "
        "base",
        "install a = 0 A; lose; remove a = 0 base",
        "install a = 0 A; install a f = 0 A; remove a = 0 base",
        // What a user had put in before stays.
        "own; install a u = 0 A; undo a = 0 A; install a = 0 A; remove a = 0 A",
        "own; install a = 0 A; remove a u = 0 A; verify a = 0 A; undo a = 0 A",
        // What packages share goes with the last.
        "install s = 0 A; install t = 0 A; remove s = 0 A; verify t = 0 A; remove t = 0 base",
        "install s = 0 A; install t u = 0 A; undo t = 0 A; remove s = 0 base",
        "install s u = 0 A; install t = 0 A; undo s = 0 A; verify t = 0 A; remove t = 0 base",
        "install s = 0 A; install t = 0 A; lose; verify t = 9 -; repair t r = 0 A; remove t = 0 A; "
        "remove s = 0 base",
        "own; install s = 0 A; install t = 0 A; remove s = 0 A; remove t = 0 A",
        // Another value takes the place of one, and gives it back.
        "install c = 0 C; remove c = 0 base",
        "install a = 0 A; install c u = 0 AC; verify a = 9 AC; undo c = 0 A; verify a = 0 A; "
        "remove a = 0 base",
        "install a = 0 A; install c = 0 AC; remove c = 0 A; remove a = 0 base",
        // What a definition takes out comes back only by an undo.
        "install r u = 0 -; verify r = 0 -; undo r = 0 base",
        "install r tu = 0 base; rollback r = 0 base",
        "install r t = 0 base; commit r = 0 -; remove r = 0 -"),
    case_name);

} // namespace
