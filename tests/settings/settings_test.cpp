// Profile files, settings, variables and the start of the trace.
#include "base_configuration.h"
#include "trace_style.h"
#include "trclog.h"
#include "variable_list.h"
#include "win_profile.h"

#include "support/has.h"
#include "support/child.h"
#include "support/scratch.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using km::base_configuration;
using km::pathname;
using km::ustring;
using km::variable_list;
using km_test::in_child;

namespace {

ustring word(const char* text) { return ustring(text); }

// Settings of their own for each test.
class Settings : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name :
             {"ZNPIS_INI_SECTION", "ZNPIS_PRODUCT_DIR", "QEP_CACHEDIR", "SPEDITOR_LIB_PATH"})
            ::unsetenv(name);
        km::set_configuration_location(pathname(dir_.at("state").c_str()));
    }
    void TearDown() override { km::set_configuration_location(pathname()); }
    void with(const std::string& lines) {
        dir_.write("state/znpis.ini", "[#MOBILE]\n" + lines);
        base_configuration::deinitialize();
    }
    std::string get(const char* key) { return base_configuration().get_var(word(key)).mbcs_str(); }
    km_test::scratch_dir dir_;
};

// A chain for substitution, taken away at the end.
struct chain {
    explicit chain(std::initializer_list<std::pair<const char*, const char*>> values) {
        for (const auto& [name, value] : values)
            list.set_value(word(name), word(value));
        variable_list::set_chain(variable_list::for_decoder, &list);
    }
    ~chain() { variable_list::set_chain(variable_list::for_decoder, nullptr); }
    std::pair<std::string, int> of(const char* text) {
        ustring out(text);
        const int result = list.substitute_variables(out);
        return {out.mbcs_str(), result};
    }
    variable_list list;
};

} // namespace

TEST(WinProfile, EditsKeepOrderCommentsAndUnknownLines) {
    km_test::scratch_dir dir;
    dir.write("f.ini", "; head\n[a]\n# note\nkey=1\nother=2\n\n[b]\nkey=3\n");
    {
        km::win_profile ini(pathname(dir.at("f.ini").c_str()));
        ini.create_item(word("KEY=9"), word("a"), 1);
        ini.create_item(word("new=x"), word("b"), 1);
        ini.delete_item_with_key(word("OTHER"), word("a"), 0);
        EXPECT_FALSE(ini.is_section_empty(word("a")));
        EXPECT_TRUE(ini.is_section_empty(word("none")));
        ini.delete_section(word("b"), 0);
        EXPECT_TRUE(ini.section_exists(word("b")));
        ini.create_item(word("k=v"), word("c"), 1);
        km::vector names, items;
        ini.get_section_names(names);
        EXPECT_EQ(names.size(), 3);
        ini.get_items_with_key(word("key"), word("a"), items);
        ASSERT_EQ(items.size(), 1);
        EXPECT_EQ(*items.at<ustring>(0), word("KEY=9"));
    }
    EXPECT_EQ(dir.read("f.ini"), "; head\n[a]\n# note\nKEY=9\n\n[b]\nkey=3\nnew=x\n[c]\nk=v\n");
    km::win_profile ini(pathname(dir.at("f.ini").c_str()));
    for (const char* section : {"a", "b", "c"})
        ini.delete_section(word(section), 1);
    ini.remove_line(word("; head"));
    ini.commit_changes();
    EXPECT_FALSE(dir.exists("f.ini"));
}

TEST(WinProfile, WhatCouldNotBeReadIsNotWrittenOver) {
    km_test::scratch_dir dir;
    dir.write("f.ini", "[a]\nkey=1\n");
    const std::string path = dir.at("f.ini");
    ::chmod(dir.path().c_str(), 0777);
    ::chmod(path.c_str(), 0);
    EXPECT_EQ(in_child([&] {
                  ASSERT_TRUE(::geteuid() != 0 || ::setuid(65534) == 0);
                  km::win_profile ini(pathname(path.c_str()));
                  EXPECT_EQ(ini.create_item(word("new=x"), word("b"), 1), 0);
              }),
              0);
    ::chmod(path.c_str(), 0600);
    EXPECT_EQ(dir.read("f.ini"), "[a]\nkey=1\n");
    {
        km::win_profile ini(pathname(path.c_str()));
        ini.add_line(word("key=2")); // the first operation, so it reads the file
    }
    EXPECT_EQ(dir.read("f.ini"), "[a]\nkey=1\nkey=2\n");
}

TEST_F(Settings, AFreshPlaceGetsItsSectionsAndDirectories) {
    EXPECT_EQ(get("product_dir"), dir_.at("state"));
    EXPECT_EQ(get("working_dir"), dir_.at("state/work"));
    EXPECT_TRUE(dir_.exists("state/work"));
    EXPECT_EQ(get("staging_dir"), dir_.at("state/service").substr(1));
    EXPECT_EQ(get("import_libraries"), "spd,libkmimp");
    const std::string text = dir_.read("state/znpis.ini");
    EXPECT_EQ(text.find("[#MOBILE]\nproduct_dir="), 0u);
    EXPECT_HAS(text, "[#GENERIC]\n");
    EXPECT_EQ(dir_.mode("state/znpis.bak"), 0u);
    EXPECT_FALSE(dir_.exists("state/znpis.ini.sem"));
}

TEST_F(Settings, ALostFileComesBackFromItsCopy) {
    with("product_dir=/p\nmine=kept\n");
    EXPECT_EQ(get("mine"), "kept");
    ::unlink(dir_.at("state/znpis.ini").c_str());
    base_configuration::deinitialize();
    EXPECT_EQ(get("mine"), "kept");
    EXPECT_EQ(dir_.mode("state/znpis.ini"), 0600u);
}

TEST_F(Settings, ADamagedSectionIsBuiltAgainAndAnOlderOneUpgraded) {
    with("only=one\n");
    EXPECT_EQ(get("only"), "");
    EXPECT_EQ(get("product_dir"), dir_.at("state"));
    with("product_dir=/p\nworking_dir=" + dir_.at("w") + "\n");
    EXPECT_EQ(get("import_libraries"), "spd,libkmimp");
    EXPECT_TRUE(dir_.exists("w"));
}

TEST_F(Settings, TheCurrentSectionWinsOverTheSharedOne) {
    with("a=mobile\nb=1\n[#GENERIC]\na=generic\nc=shared\n");
    EXPECT_EQ(get("a"), "mobile");
    EXPECT_EQ(get("c"), "shared");
    ::setenv("ZNPIS_INI_SECTION", "mine", 1);
    base_configuration::deinitialize();
    EXPECT_EQ(get("product_dir"), dir_.at("state/mine"));
    EXPECT_EQ(get("custom_section"), "true");
    EXPECT_EQ(get("a"), "generic");
}

TEST_F(Settings, GettersAnswerWhateverStandsThere) {
    base_configuration settings;
    with("x=1\nnm_restart_timeout=-1\ncheckpoint_buffer_size=5\nresinit_one_reboot=no\n"
         "resinit_reboot_forced=Yes\ntrace_level=99999999999999\n"
         "import_libraries=abc,liba;spd,libb\nnotify_ext_directly{a*}=y\n");
    EXPECT_EQ(settings.get_restart_timeout(), 60000);
    EXPECT_EQ(settings.get_checkpoint_buffer_size(), 1000000);
    EXPECT_EQ(settings.is_checkpoint_disabled(), 0);
    EXPECT_EQ(settings.get_resinit_one_reboot(), 0);
    EXPECT_EQ(settings.get_resinit_reboot_forced(), 1);
    EXPECT_EQ(settings.get_trace_level(), 2147483647);
    EXPECT_EQ(settings.get_import_library(word(".spd")), word("libb"));
    EXPECT_EQ(settings.get_import_library(word("zzz")), word("liba"));
    EXPECT_EQ(settings.get_notif_ext_dir(word("abc")), 1);
    EXPECT_EQ(settings.get_notif_ext_dir(word("none")), 0);
    with("x=1\ny=2\ncheckpoint_buffer_size=0\n");
    EXPECT_EQ(settings.is_checkpoint_disabled(), 1);
    EXPECT_EQ(settings.get_restart_timeout(), 180);
    EXPECT_EQ(settings.get_resinit_one_reboot(), 1);
}

TEST_F(Settings, TheLibrariesFileMustBeThere) {
    ::setenv("SPEDITOR_LIB_PATH", dir_.at("lib").c_str(), 1);
    EXPECT_TRUE(base_configuration().get_library_file().get_text().empty());
    dir_.write("lib/libs.znp", "libkmcore\n");
    EXPECT_EQ(base_configuration().get_library_file(), pathname(dir_.at("lib/libs.znp").c_str()));
    ::setenv("ZNPIS_INI_SECTION", "#SERVER", 1);
    EXPECT_TRUE(base_configuration().get_cfg_files_path().get_text().empty());
    ::unsetenv("ZNPIS_INI_SECTION");
    ::unsetenv("SPEDITOR_LIB_PATH");
    const std::string relative = base_configuration().get_cfg_files_path().mbcs_str();
    EXPECT_EQ(relative.find("lib/"), 0u);
    EXPECT_EQ(base_configuration().get_rules_file().get_text().empty(), ::geteuid() == 0);
}

TEST(VariableList, ReferencesAreResolvedFromTheRight) {
    chain vars{{"a", "1"}, {"b", "a"}, {"path", "/opt/$(a)"}, {"self", "x$(self)y"}, {"", "empty"}};
    const struct {
        const char *text, *expected;
        int result;
    } cases[] = {{"$(path)/bin", "/opt/1/bin", 1},
                 {"$($(b))", "1", 1},
                 {"$(undefined)", "$(undefined)", 1},
                 {"abc$(undefined)$(a)", "abc$(undefined)1", 0},
                 {"abc$(self)", "abc$(self)", 0},
                 {"$(self)", "$(self)", 1},
                 {"$()", "empty", 1},
                 {"x$(a", "x$(a", 1},
                 {"plain", "plain", 1}};
    for (const auto& one : cases) {
        const auto [text, result] = vars.of(one.text);
        EXPECT_EQ(text, one.expected) << one.text;
        EXPECT_EQ(result, one.result) << one.text;
    }
}

TEST(VariableList, CyclesAndDoublingEnd) {
    chain vars{{"a", "$(b)"}, {"b", "$(a)"}, {"x", "..$(y)"}, {"y", "..$(x)"}};
    EXPECT_EQ(vars.of("..$(a)").second, 0);
    EXPECT_LT(vars.of("..$(x)").first.size(), 1000u);
    for (int i = 0; i < 40; ++i) {
        const std::string next = "$(d" + std::to_string(i + 1) + ")";
        vars.list.set_value(word(("d" + std::to_string(i)).c_str()), word((next + next).c_str()));
    }
    vars.list.set_value(word("d40"), word("z"));
    vars.of("..$(d0)"); // 2^40 look-ups without the budget
    for (int i = 0; i < 100; ++i)
        vars.list.set_value(word(("n" + std::to_string(i)).c_str()),
                            word(("..$(n" + std::to_string(i + 1) + ")").c_str()));
    vars.list.set_value(word("n100"), word("end"));
    EXPECT_EQ(vars.of("..$(n0)").first.find("end"), std::string::npos);
    EXPECT_EQ(vars.of("..$(n90)").first.find("$("), std::string::npos);
}

TEST(VariableList, TheFirstListOfAChainWins) {
    variable_list first;
    auto* second = new variable_list;
    first.set_value(word("a"), word("first"));
    second->set_value(word("a"), word("second"));
    second->set_value(word("b"), word("$(a)"));
    first.change_defaults(second);
    EXPECT_EQ(first.contains(word("b")), 1);
    EXPECT_EQ(first.get_defaults(), second);
    const std::unique_ptr<ustring> value(first.get_value(word("b")));
    EXPECT_EQ(*value, word("$(a)")); // no process-wide chain, no substitution
    EXPECT_EQ(first.lookup_undefined_variables(word("$(b)$(none)")), word("none"));
    first.change_defaults(nullptr);
    EXPECT_EQ(first.contains(word("b")), 0);
}

TEST(VariableList, ValuesTurnIntoReferencesLongestFirst) {
    variable_list list;
    list.set_value(word("root"), word("/opt"));
    list.set_value(word("app"), word("/opt/app"));
    list.set_value(word("a"), word("a"));
    list.set_value(word("nothing"), word(""));
    km::vector excluded;
    excluded.push_back(new ustring("a"));
    list.start_substitute_values(excluded);
    ustring text("/opt/app/x:/opt/y:/opt/app");
    list.substitute_values(text);
    EXPECT_EQ(text, word("$(app)/x:$(root)/y:$(app)"));
    list.start_substitute_values(km::vector());
    ustring again("a");
    list.substitute_values(again);
    EXPECT_EQ(again, word("$(a)"));
}

TEST(VariableList, MinAndMaxPickAmongFiles) {
    km_test::scratch_dir dir;
    for (const char* name : {"file10.txt", "file9.txt", "file5.txt", "other"})
        dir.write(name, "");
    chain vars{{"a", "1"}};
    const std::string head = dir.path() + "/file";
    EXPECT_EQ(vars.of((head + "$(MIN).txt").c_str()).first, head + "10.txt");
    EXPECT_EQ(vars.of((head + "$(MAX).txt").c_str()).first, head + "9.txt");
    EXPECT_EQ(vars.of((head + "$(MAX).none").c_str()).first, head + "$(MAX).none");
}

TEST(TraceStyle, NumbersGoRound) {
    char name_text[km::trace_style::name_size], next_text[km::trace_style::next_size];
    char *name = name_text, *next = next_text;
    const struct {
        int style, number, advance, expected;
    } cases[] = {{0, 9, 1, 1}, {0, 3, 1, 4},  {0, 3, 0, 3},          {2, 17, 1, 18}, {2, 19, 1, 11},
                 {2, 0, 1, 2}, {1, 9, 1, 10}, {1, 2147483647, 1, 1}, {12, 12, 1, 1}, {7, 9, 1, 1}};
    for (const auto& one : cases) {
        std::unique_ptr<km::trace_style> style(km::trace::get_trace_style(one.style));
        EXPECT_EQ(style->get_next_file(one.number, &name, &next, one.advance), one.expected)
            << one.style << " " << one.number;
    }
    std::unique_ptr<km::trace_style> process(km::trace::get_trace_style(3));
    process->get_next_file(1, &name, &next, 1);
    EXPECT_EQ(std::string(name), "." + std::to_string(::getpid()) + ".2");
    EXPECT_STREQ(next, "2");
}

namespace {

int evaluated = 0;
const char* costly() {
    ++evaluated;
    return "text";
}

} // namespace

TEST_F(Settings, TraceFilesFollowTheSettings) {
    with("product_dir=" + dir_.path() +
         "\ntrace_level=4\ntrace_size=600\ntrace_tags=common;install\n");
    EXPECT_EQ(in_child([&] {
                  km::trace::initialize("disp.1234", nullptr);
                  EXPECT_EQ(km::trace::check_tags("common"), 1);
                  EXPECT_EQ(km::trace::check_tags("other,install"), 1);
                  EXPECT_EQ(km::trace::check_tags("other"), 0);
                  KM_TRACE_FUNCTION("test::function");
                  KM_TRACE(km::trace_info, "common", "a line %s", costly());
                  KM_TRACE(km::trace_return, "common", "not written %s", costly());
                  KM_TRACE(km::trace_info, "other", "not written %s", costly());
                  EXPECT_EQ(evaluated, 1);
                  for (int i = 0; i < 40; ++i)
                      KM_TRACE(km::trace_error, "common", "line %d", i);
                  km::trace::terminate();
              }),
              0);
    EXPECT_TRUE(dir_.exists("disp.tpc"));
    EXPECT_TRUE(dir_.exists("disp2.trc") || dir_.exists("disp3.trc"));
    struct stat about {};
    ASSERT_EQ(::stat(dir_.at("disp1.trc").c_str(), &about), 0);
    EXPECT_LT(about.st_size, 700);
}

TEST_F(Settings, ATraceThatCannotBeWrittenKeepsTheErrorOfItsCaller) {
    with("product_dir=" + dir_.path() + "\ntrace_level=4\ntrace_tags=common\n");
    ASSERT_EQ(::symlink("/dev/full", dir_.at("full1.trc").c_str()), 0);
    EXPECT_EQ(in_child([&] {
                  km::trace::initialize("full", nullptr);
                  KM_TRACE_FUNCTION("test::function");
                  errno = ENOENT;
                  KM_TRACE(km::trace_error, "common", "error %d", errno);
                  EXPECT_EQ(errno, ENOENT);
                  km::trace::terminate();
              }),
              0);
    EXPECT_TRUE(km::file(pathname(dir_.at("full1.trc").c_str())).is_link());
}

TEST_F(Settings, LevelZeroMakesNoFileAndAllMeansAll) {
    with("product_dir=" + dir_.path() + "\ntrace_level=0\n");
    EXPECT_EQ(in_child([&] {
                  km::trace::initialize("none", nullptr);
                  EXPECT_EQ(km::trace::level(), 0);
              }),
              0);
    EXPECT_FALSE(dir_.exists("none.tpc"));
    EXPECT_EQ(in_child([&] {
                  km::trace::set_remote_values(0, 6, 1000000, 0, "all");
                  km::trace::initialize("remote", nullptr);
                  EXPECT_EQ(km::trace::check_tags("anything"), 1);
                  km::trace::initialize("again", nullptr);
                  variable_list list; // traced containers at level 6 do not recurse
                  list.set_value(word("a"), word("b"));
              }),
              0);
    EXPECT_TRUE(dir_.exists("remote1.trc"));
    EXPECT_FALSE(dir_.exists("again.tpc"));
}
