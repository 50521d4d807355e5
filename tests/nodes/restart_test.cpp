// Restarts, the boot list, service directories, the log of a package.
#include "restart.h"

#include "booting_list.h"
#include "engine_hooks.h"
#include "log_objects.h"
#include "service_control.h"

#include "support/has.h"
#include "support/fake_definition.h"
#include "support/recording_command.h"

#include <ctime>
#include <gtest/gtest.h>

using namespace km;
using km_test::recording_command;
using km_test::tree;
using km_test::u;

namespace {
struct Home : testing::Test {
    ~Home() override { set_engine_hooks({}); }
    std::string list() { return home.dir.read("work/booting.lst"); }
    km_test::engine_home home;
};
using BootingList = Home;
using ServiceControl = Home;
using PackageLog = Home;
using Restart = Home;
} // namespace

TEST_F(BootingList, LinesAreReadLiterally) {
    const std::string now = std::to_string(std::time(nullptr));
    const struct {
        std::string line;
        int listed;
        long timeout;
        int force;
    } cases[] = {{"a^1.0 # " + now + " 600 1", 1, -2, 1},
                 {"a^1.0 # 1000 600 1", 1, 600, 1},
                 {"a^1.0 # 1000 0 0", 1, 0, 0},
                 {"a^1.0 # " + now + " 9223372036854775807 0", 1, -2, 0},
                 {"a^1.0 # -9223372036854775808 5 0", 1, 5, 0},
                 {"a^1.0 # 1000 600", 1, -1, 0},
                 {"a^1.0 1000 600 1", 1, -1, 0},
                 {"a^1.0", 1, -1, 0},
                 {"a^1.01 # 1000 600 1", 0, 77, 0},
                 {"ba^1.0 # 1000 600 1", 0, 77, 0}};
    for (const auto& one : cases) {
        home.dir.write("work/booting.lst", "other^2 # 1 2 1\n" + one.line + "\n");
        long timeout = 77;
        int force = 77;
        EXPECT_EQ(is_in_booting_list(u("a"), u("1.0"), &timeout, &force), one.listed) << one.line;
        EXPECT_EQ(timeout, one.timeout) << one.line;
        EXPECT_EQ(force, one.force) << one.line;
    }
    EXPECT_EQ(is_in_booting_list(u("a"), u("1.*"), nullptr, nullptr), 0); // no pattern
}

TEST_F(BootingList, APackageIsListedOnceAndTakenOutAlone) {
    home.dir.write("work/booting.lst", "a^1.01 # 5 -1 0\n");
    const auto before = std::time(nullptr);
    handle_booting_list(u("a"), u("1.0"), 1, -30, 1);
    const std::string written = list();
    long stamp = 0;
    ASSERT_EQ(std::sscanf(written.c_str(), "a^1.01 # 5 -1 0\na^1.0 # %ld -1 1\n", &stamp), 1);
    EXPECT_TRUE(stamp >= before && stamp <= std::time(nullptr)) << written;
    handle_booting_list(u("a"), u("1.0"), 1, 600, 0);
    EXPECT_EQ(list(), written); // the time runs from the first request
    handle_booting_list(u("a"), u("1.0"), 0, 0, 0);
    EXPECT_EQ(list(), "a^1.01 # 5 -1 0\n");
    handle_booting_list(u("a"), u("1.01"), 0, 0, 0);
    EXPECT_FALSE(home.dir.exists("work/booting.lst"));
    home.dir.write("work/booting.lst/in_the_way", "x"); // cannot be read, so it is not replaced
    handle_booting_list(u("a"), u("1.0"), 1, 0, 0);
    EXPECT_TRUE(home.dir.exists("work/booting.lst/in_the_way"));
}

TEST_F(BootingList, UserVariablesOverruleThePackage) {
    for (const auto& [variables, wanted_force, wanted_timeout] :
         {std::tuple("", 7, 8L),
          {"__COMMIT_REBOOT_FORCED__=YES\n__COMMIT_REBOOT_TIMEOUT__=90\n", 1, 90L},
          {"__COMMIT_REBOOT_FORCED__=yes\n__COMMIT_REBOOT_TIMEOUT__=soon\n", 7, 0L}}) {
        home.dir.write("znpis.var", variables);
        user_file_variable_list::terminate();
        int force = 7;
        long timeout = 8;
        overwrite_reboot_parameters(&force, &timeout);
        EXPECT_EQ(force, wanted_force);
        EXPECT_EQ(timeout, wanted_timeout);
    }
}

TEST_F(ServiceControl, DirectoriesOfThatPackageGo) {
    const auto line = [this](const std::string& package, const std::string& directory) {
        home.dir.write(directory + "/deep/file", "x");
        return package + " :: " + home.dir.at(directory) + "\n";
    };
    const std::string others = line("a 1.0.1", "s1") + line("a 1.01", "s2") + line("ba 1.0", "s3");
    const std::string own = line("a 1.0", "s4") + line("a 1.0 more words", "s5 with blank") +
                            "a 1.0 :: relative\na 1.0 nothing\n";
    home.dir.write("work/service.ctl", others + own);
    tree of;
    of.package.name = u("a");
    EXPECT_EQ(of.package.clear_service_directory(), 1);
    EXPECT_EQ(home.dir.read("work/service.ctl"), others);
    for (const char* kept : {"s1", "s2", "s3"})
        EXPECT_TRUE(home.dir.exists(std::string(kept) + "/deep/file"));
    for (const char* gone : {"s4", "s5 with blank"})
        EXPECT_FALSE(home.dir.exists(gone));
    EXPECT_EQ(of.package.clear_service_directory(), 1);

    // A backup package is called by its path, which may hold the separator: the last one counts.
    const std::string named = line("/b/UP:: 1", "s6"), backup = named.substr(0, named.find(" :: "));
    home.dir.write("work/service.ctl", backup + " 1.0.0 :: " + home.dir.at("s6") + "\n" + others);
    EXPECT_EQ(cleanup_backup(u(backup), u("1.0.0")), cm_command::success);
    EXPECT_FALSE(home.dir.exists("s6"));
    EXPECT_EQ(home.dir.read("work/service.ctl"), others);

    std::filesystem::remove(home.dir.at("work/service.ctl"));
    home.dir.write("work/service.ctl/in_the_way", "x");
    EXPECT_EQ(of.package.clear_service_directory(), 0);
    EXPECT_EQ(cleanup_backup(u("a"), u("1.0")), cm_command::temporary_failure);
}

TEST_F(Restart, ActsByActionAndPhase) {
    const struct {
        int action, phase, result;
    } cases[] = {{1, 4, 0}, {1, 11, 0}, {2, 1, 0},  {2, 3, 0},
                 {2, 4, 9}, {2, 10, 0}, {2, 11, 9}, {3, 4, 0}};
    for (const auto& one : cases) {
        tree of;
        auto* command = new restart;
        of.package.add(command, nullptr);
        command->do_execute(one.action, one.phase);
        EXPECT_EQ(command->result, one.result) << &one - cases;
        EXPECT_EQ(of.package.restart_internal, 1);
        of.package.mode = m_device;
        command->do_execute(one.action, one.phase);
        EXPECT_EQ(command->result, cm_command::failure);
    }
}

TEST_F(Restart, TellsAResultOnlyWhereItWasToAct) {
    const struct {
        int action, phase, install, remove, commit, result;
        const char* text;
    } cases[] = {{1, 1, 0, 1, 1, 0, ""},        {1, 1, 1, 0, 0, 0, "pending"},
                 {1, 1, 2, 0, 0, 5, "pending"}, {1, 1, 1, 0, 0, 6, "success_retry"},
                 {2, 1, 1, 0, 1, 0, ""},        {2, 1, 0, 1, 0, 9, "failure"},
                 {1, 3, 1, 1, 0, 0, ""},        {1, 3, 0, 0, 1, 0, "pending"},
                 {2, 4, 0, 0, 2, 3, "pending"}, {1, 5, 0, 0, 1, 7, "warning"},
                 {3, 1, 0, 0, 0, 0, "pending"}, {1, 2, 1, 1, 1, 0, ""},
                 {1, 7, 1, 1, 1, 0, ""},        {1, 11, 1, 1, 1, 9, ""}};
    for (const auto& one : cases) {
        restart command;
        command.during_install = one.install;
        command.during_remove = one.remove;
        command.during_commit = one.commit;
        command.result = static_cast<cm_result>(one.result);
        EXPECT_EQ(command.map_result(one.action, one.phase), u(one.text)) << &one - cases;
    }
    restart command;
    command.during_install = restart::after;
    command.during_undo = restart::immediately;
    for (const int action : {1, 2}) {
        const std::unique_ptr<cm_command> undo(command.get_undo_command(action));
        EXPECT_EQ(dynamic_cast<restart&>(*undo).during_install, restart::immediately);
    }
    EXPECT_EQ(command.get_undo_command(a_verify_execute), nullptr);
}

TEST_F(Restart, ConditionIsNeededAndMadeByTheHost) {
    static int told;
    engine_hooks hooks;
    hooks.prepare_restart = [](cm_package*, int needed) { return told = needed, 0; };
    set_engine_hooks(hooks);
    for (const auto& [connected, in_reboot, result, needed] :
         {std::tuple(0, 0, 0, 1), {1, 0, 0, 0}, {1, 1, 0, 1}, {1, 0, 5, 1}, {1, 0, 3, 0}}) {
        tree of;
        restart helper;
        helper.set_package(&of.package);
        of.package.connected = connected;
        of.package.operation_is_in_a_reboot = in_reboot;
        of.package.result = static_cast<cm_result>(result);
        EXPECT_EQ(helper.prepare_restart_condition(), 0);
        EXPECT_EQ(told, needed);
        EXPECT_EQ(helper.remove_restart_condition(), 1); // no hook, no failure
    }
}

TEST_F(Restart, ChangesTheStartFile) {
    restart command;
    const auto outside = std::filesystem::current_path();
    home.dir.write("sys:system/AUTOEXEC.NCF", "load first\nlast\n");
    std::filesystem::current_path(home.dir.path());
    EXPECT_EQ(command.change_autoexncf(restart::add_module), 1);
    EXPECT_EQ(home.dir.read("sys:system/AUTOEXEC.NCF"), "load first\nload resinit\nlast\n");
    EXPECT_EQ(command.change_autoexncf(restart::add_module), 1);
    EXPECT_EQ(home.dir.read("sys:system/AUTOEXEC.NCF"), "load first\nload resinit\nlast\n");
    EXPECT_EQ(home.dir.read("sys:system/AUTOEXEC.$NC"), "load first\nload resinit\nlast\n");
    EXPECT_EQ(command.change_autoexncf(restart::remove_module), 1);
    EXPECT_EQ(home.dir.read("sys:system/AUTOEXEC.NCF"), "load first\nlast\n");
    std::filesystem::current_path(outside);
    EXPECT_EQ(command.change_autoexncf(restart::add_module), 0); // there is nothing to save
}

TEST(Mode, IsToldInWords) {
    const struct {
        long mode;
        const char* text;
    } cases[] = {
        {0, ""},
        {m_binary_file | m_device | m_intelligent_remove, ""},
        {m_no_reboot | m_preview_only | m_auto_reboot, "auto-reboot | no-reboot | preview-only"},
        {0xFFF, "not-transactional | not-transactional | transactional | auto-commit | "
                "undoable | preferably-undoable | auto-accept | "
                "undo-ability-transactional | preferably-not-in-reboot | during-reboot | "
                "auto-reboot | preview-only"},
        {0x47000, "force | repair | source | delta"}};
    for (const auto& one : cases)
        EXPECT_EQ(map_mode(one.mode), u(one.text)) << one.mode;
}

TEST_F(PackageLog, GrowsByAHeaderAndALinePerCommand) {
    tree of("a b c");
    auto* log = of.package.log_object_list = new log_object_list;
    log->location = pathname(home.dir.at("logs/deep").c_str());
    of.package.operation_name = u("install");
    of.package.mode = m_force;
    of[1].run = cm_command::warning;
    of[2].to_be_logged = 0;
    const auto without_time = [this](const char* name) {
        std::string text = home.dir.read(std::string("logs/deep/") + name);
        for (size_t at = 0; (at = text.find("Time: ", at)) != std::string::npos; ++at)
            text.replace(at, text.find('\n', at) - at, "T");
        return text;
    };
    of.walk(a_execute, p_do);
    const std::string header = "\n=================\nSoftware Package: \"pkg^1.0\"\n"
                               "Operation:         install\nMode:              force\nT\n\n";
    const std::string first = header + "[success]\ta\n[warning]\tb\n";
    EXPECT_EQ(without_time("pkg^1.0.log"), first);
    of.walk(a_execute, p_do_cleanup); // tells nothing, not even a header
    EXPECT_EQ(without_time("pkg^1.0.log"), first);
    // A user's pass has no header before its first line, and no line without a text.
    of.package.package_mask = 2;
    of.package.mode = 0;
    EXPECT_EQ(log->log_package(&of.package), 1);
    of[0].result = static_cast<cm_result>(12);
    log->log_command(&of[0], a_execute, p_do);
    of[1].name.clear();
    log->log_command(&of[1], a_execute, p_do);
    EXPECT_EQ(without_time("pkg^1.0.log"), first);
    of[2].result = cm_command::failure;
    log->log_command(&of[2], a_execute, p_do);
    log->log_command(&of[2], a_execute, p_do);
    std::string second = header + "[failure]\tc\n[failure]\tc\n";
    second.replace(second.find("force"), 5, "(null)");
    EXPECT_EQ(without_time("pkg^1.0.log"), first + second);

    of.package.is_backup_package = 1;
    of.package.package_mask = 1;
    of.package.description = u("main^2.0");
    log->unix_attributes = 0x4000 | 0x8000 | 0x80000; // rw,r,
    EXPECT_EQ(log->log_package(&of.package), 1);
    EXPECT_EQ(home.dir.mode("logs/deep/main^2.0.log"), 0640u);
    EXPECT_HAS(without_time("main^2.0.log"), "Software Package: \"main^2.0\"\n");
}

TEST_F(PackageLog, ALogThatCannotBeOpenedIsAMessage) {
    tree of("a");
    auto* log = of.package.log_object_list = new log_object_list;
    log->location = pathname("/proc/none/logs");
    EXPECT_EQ(log->log_package(&of.package), 0);
    log->location = pathname(home.dir.path().c_str());
    home.dir.write("pkg^1.0.log/in_the_way", "x");
    EXPECT_EQ(log->log_package(&of.package), 0);
    EXPECT_EQ(km_test::told(of.messages), "25 24 ");
    EXPECT_EQ(of.walk(), "a 0"); // the operation goes on
    km_test::fake_importer from({{"location", "/l"}, {"unix_attributes", "rw,r,r"}});
    log->import(from);
    EXPECT_EQ(from.asked, "location unix_user_id unix_group_id unix_attributes ");
    km_test::fake_exporter to;
    log->export_(to);
    EXPECT_EQ(to.text, "location=/l unix_user_id=-1 unix_group_id=-1 unix_attributes=rw,r,r ");
}
