// Install and remove from beginning to end: results, what lies on disk, and what a kill leaves.
#include "package_fixture.h"
#include "variable_list.h"

#include "support/has.h"

using namespace km_test;
using km::a_execute;
using km::a_reverse;
using km::cm_catalog_entry;

namespace {

std::vector<std::string> heard; // what the hooks were asked, in order

class Execute : public PackageTest {
  protected:
    void SetUp() override {
        PackageTest::SetUp();
        heard.clear();
        km::engine_hooks hooks;
        hooks.request_restart = [](km::cm_package*, int) { heard.push_back("request"); };
        hooks.cancel_restart = [](km::cm_package*) { heard.push_back("cancel"); };
        hooks.prepare_restart = [](km::cm_package*, int) {
            heard.push_back("prepare");
            return prepares;
        };
        hooks.unprepare_restart = [](km::cm_package*) {
            heard.push_back("unprepare");
            return 1;
        };
        hooks.make_durable = [] { return durable; };
        km::set_engine_hooks(hooks);
        prepares = durable = 1;
    }

    // The gate and, if it allows, the operation; minus the gate's answer if it refuses.
    static int run(km::cm_package& package, int action, unsigned mode = 0) {
        int status = 0;
        const int word = static_cast<int>(mode);
        if (const int refused = package.validate_cm_status(km::o_execute, action, word, 0, &status))
            return -refused;
        return package.execute(action, word, 7);
    }
    // A new package, of which the catalog knows nothing.
    std::unique_ptr<km::cm_package> make_anew(stores& all) {
        const km::cm_catalog_key key("pkg", "1");
        all.catalog.remove(&key);
        auto package = make();
        all.give(*package);
        return package;
    }
    // From the package file, or from the profile with `again`.
    int install(stores& all, unsigned mode = km::m_binary_file) {
        auto package = make();
        all.give(*package);
        return run(*package, a_execute, mode);
    }
    int again(stores& all, int action, unsigned mode = 0) {
        auto package = from_profile(all);
        return package ? run(*package, action, mode) : -99;
    }

    static inline int prepares = 1, durable = 1;
};

void result_of(const char* call, int result) { recorder::results[call] = result; }

} // namespace

TEST_F(Execute, AnInstallIsStoredOnceAndARemoveLeavesNothing) {
    stores all(dir_.at("store"));
    EXPECT_EQ(install(all), 0);
    const std::vector<std::string> installed = {"can 1 1 a", "can 1 1 b", "do 1 1 a", "do 1 1 b"};
    ASSERT_GE(recorder::calls.size(), 6U);
    EXPECT_EQ(std::vector(recorder::calls.begin(), recorder::calls.begin() + 4), installed);
    ASSERT_TRUE(all.entry());
    EXPECT_EQ(status(all.entry()), "2/2");
    EXPECT_EQ(all.entry()->last_action, a_execute);
    EXPECT_EQ(all.entry()->operation_in_progress, km::o_none);
    EXPECT_EQ(all.entry()->call_argument, 7);
    EXPECT_EQ(all.entry()->current_result, 0);
    EXPECT_EQ(files_in("work"), 1);
    EXPECT_EQ(files_in("target"), 2);
    const auto profile = from_profile(all);
    ASSERT_TRUE(profile);
    EXPECT_EQ(profile->resume_stage, 0);
    EXPECT_EQ(profile->mode & km::m_binary_file, 0U);

    EXPECT_EQ(install(all), -1) << "the gate";
    auto second = make();
    all.give(*second);
    EXPECT_EQ(second->execute(a_execute, km::m_binary_file, 0), 9) << "without the gate";
    EXPECT_EQ(second->internal_error, km::ie_action_and_state);

    recorder::calls.clear();
    EXPECT_EQ(again(all, a_reverse), 0);
    const std::vector<std::string> removed = {"can 2 1 a", "can 2 1 b", "do 2 1 b", "do 2 1 a"};
    EXPECT_EQ(std::vector(recorder::calls.begin(), recorder::calls.begin() + 4), removed);
    EXPECT_EQ(status(all.entry()), "none");
    EXPECT_EQ(files_in("work") + files_in("target"), 0);
    EXPECT_EQ(again(all, a_reverse), -99);
    EXPECT_TRUE(heard.empty());
}

TEST_F(Execute, AttributesRefuseModes) {
    const std::int32_t may_not = 1, free = 2, must = 4;
    const struct {
        const char* what;
        int connected;
        std::int32_t undoable, committable;
        unsigned mode;
        int can, error;
        const char* message;
    } rows[] = {
        {"not undoable", 0, may_not, free, km::m_undoable, 0, 5, "'not undoable'"},
        {"must be undoable", 0, must, free, 0, 0, 25, "'undoable'"},
        {"must, preferably", 0, must, free, km::m_preferably_undoable, 0, 25, "'undoable'"},
        {"not committable", 0, free, may_not, km::m_transactional, 0, 4, "'not committable'"},
        {"must be committed", 0, free, must, 0, 0, 26, "'committable'"},
        {"stream: not asked", 1, must, must, 0, 0, 0, ""},
        {"preferably, but not", 0, may_not, free, km::m_preferably_undoable, 0, 0, ""},
        {"do refused", 0, free, free, 0, 9, 17, ""},
        {"do busy", 0, free, free, 0, 8, 17, ""},
        {"busy, no prepare", 0, free, 0, km::m_preferably_not_transactional, 8, 17, ""},
        {"busy, may not", 0, free, may_not, km::m_preferably_not_transactional, 8, 17, ""},
        {"both words", 0, free, free, km::m_transactional | km::m_preferably_not_transactional, 0,
         0, ""},
        {"torn", 0, free, free, 0, 10, 17, ""},
    };
    for (const auto& row : rows) {
        stores all(dir_.at("store"));
        auto package = make_anew(all);
        package->connected = row.connected;
        package->undoable = row.undoable;
        package->committable = row.committable;
        result_of("can 1 1 b", row.can);
        const int result = package->execute(a_execute, static_cast<int>(row.mode), 0);
        EXPECT_EQ(result, row.error ? 9 : 0) << row.what;
        EXPECT_EQ(package->internal_error, row.error) << row.what;
        EXPECT_HAS(text_of(all.messages), row.message) << row.what;
        EXPECT_EQ(status(all.entry()), row.error ? "none" : "2/2") << row.what;
        EXPECT_EQ(all.entry() && (all.entry()->entry_mode & km::m_preferably_undoable), false);
        recorder::results.clear();
    }
}

TEST_F(Execute, TheModeAndWhatIsBusyChooseTheOperation) {
    const unsigned undoable = km::m_undoable, prepare = km::m_transactional;
    const unsigned rather_undoable = km::m_preferably_undoable;
    const unsigned rather_now = km::m_preferably_not_transactional;
    const unsigned undo_later = km::m_undo_ability_transactional;
    const struct {
        unsigned mode;
        const char* busy; // a question that is answered with "not now"
        int operation;
        const char* words;
        unsigned bits; // what is left of the mode
    } rows[] = {
        {0, "", km::o_execute, "2/2", 0},
        {undoable, "", km::o_execute_undoable, "5/5", undoable},
        {rather_undoable, "", km::o_execute_undoable, "5/5", rather_undoable},
        {rather_undoable, "backup 1 0 a", km::o_execute, "2/2", 0},
        {prepare, "", km::o_prepare, "1/1", prepare},
        {prepare | undoable, "", km::o_prepare_undoable, "4/4", prepare | undoable},
        {prepare | undo_later, "", km::o_prepare_undo_prepare, "3/3", prepare | undo_later},
        {undo_later, "", km::o_execute_undoable, "5/5", undo_later},
        {prepare | rather_now, "", km::o_execute, "2/2", prepare | rather_now},
        {rather_now, "can 1 1 b", km::o_prepare, "1/1", prepare},
        {rather_now | undoable, "can 1 1 b", km::o_prepare_undoable, "4/4", prepare | undoable},
    };
    for (const auto& row : rows) {
        stores all(dir_.at("store"));
        recorder::results = {{row.busy, 8}};
        auto package = make_anew(all);
        EXPECT_EQ(run(*package, a_execute, row.mode), 0) << row.mode << row.busy;
        ASSERT_TRUE(all.entry()) << row.mode;
        EXPECT_EQ(all.entry()->operation_requested, row.operation) << row.mode << row.busy;
        EXPECT_EQ(status(all.entry()), row.words) << row.mode << row.busy;
        EXPECT_EQ(static_cast<unsigned>(all.entry()->entry_mode), row.bits) << row.mode;
    }
}

TEST_F(Execute, EachResultOfACommandIsFoldedIntoTheEntry) {
    const std::vector<std::string> reboot = {"prepare", "request"};
    const struct {
        int child, stops, answer;
        const char* words;
        int pending, stage, error;
        std::vector<std::string> asked;
        const char* first_call; // behind the reboot
    } rows[] = {{0, 1, 0, "2/2", 0, 0, 0, {}, ""},
                {1, 1, 1, "0/0", 1, 1, 0, reboot, "do 1 1 b"},
                {2, 1, 2, "0/0", 2, 1, 0, reboot, "do 1 1 a"},
                {3, 1, 3, "0/0", 3, 1, 0, reboot, "do 1 7 b"},
                {4, 1, 4, "0/0", 4, 1, 0, reboot, "do 1 1 a"},
                {5, 1, 5, "0/2", 5, 1, 0, {"prepare"}, "do 1 7 b"},
                {7, 1, 7, "2/2", 0, 0, 0, {}, ""},
                {8, 1, 9, "2/E", 0, 0, 20, {}, ""},
                {8, 0, 7, "2/2", 0, 0, 0, {}, ""},
                {9, 1, 9, "2/E", 0, 0, 20, {}, ""},
                {9, 0, 7, "2/2", 0, 0, 0, {}, ""},
                {10, 1, 10, "2/E", 0, 0, 0, {}, ""}};
    for (const auto& row : rows) {
        const std::string what = std::to_string(row.child) + " stops " + std::to_string(row.stops);
        stores all(dir_.at("store"));
        heard.clear();
        result_of("do 1 1 a", row.child);
        auto package = make_anew(all);
        package->set_stop_on_failure(row.stops);
        EXPECT_EQ(package->execute(a_execute, km::m_binary_file, 0), row.answer) << what;
        EXPECT_EQ(status(all.entry()), row.words) << what;
        ASSERT_TRUE(all.entry());
        EXPECT_EQ(all.entry()->current_result, row.pending) << what;
        EXPECT_EQ(package->internal_error, row.error) << what;
        EXPECT_EQ(heard, row.asked) << what;
        const auto profile = from_profile(all);
        ASSERT_TRUE(profile) << what;
        EXPECT_EQ(profile->resume_stage, row.stage) << what;
        recorder::results.clear();
        if (row.pending == 0)
            continue;
        // The call behind the reboot: what was done is not done again, what asked for it is.
        recorder::calls.clear();
        EXPECT_EQ(profile->execute(a_execute, km::m_during_reboot, 0), 0) << what;
        EXPECT_EQ(status(all.entry()), "2/2") << what;
        EXPECT_EQ(recorder::calls.front(), row.first_call) << what;
    }
}

TEST_F(Execute, AStepOfTheEndThatFailsIsTenAndTheStoreTellsTheTruth) {
    enum fault { no_profile, not_durable, no_restart };
    const struct {
        const char* what;
        fault at;
        int child;
        int error;
        const char* words;
        std::vector<std::string> asked;
    } rows[] = {{"no profile", no_profile, 0, 0, "none", {}},
                {"no profile, reboot", no_profile, 1, 0, "none", {}},
                {"no profile, error", no_profile, 9, 20, "none", {}},
                {"store", not_durable, 0, 12, "none", {}},
                {"store, error", not_durable, 9, 12, "none", {}},
                {"store, reboot", not_durable, 1, 12, "none", {"unprepare", "cancel"}},
                {"restart", no_restart, 3, 22, "0/0", {"prepare"}},
                {"restart later", no_restart, 5, 22, "0/2", {"prepare"}}};
    for (const auto& row : rows) {
        stores all(dir_.at("store"));
        heard.clear();
        result_of("do 1 1 b", row.child);
        prepares = row.at == no_restart ? 0 : 1;
        durable = row.at == not_durable ? 0 : 1;
        auto package = make_anew(all);
        if (row.at == no_profile) {
            std::filesystem::remove_all(dir_.at("work"));
            dir_.write("work", "no directory");
        }
        EXPECT_EQ(package->execute(a_execute, km::m_binary_file, 0), 10) << row.what;
        EXPECT_EQ(package->internal_error, row.error) << row.what;
        EXPECT_EQ(status(all.entry()), row.words) << row.what;
        EXPECT_EQ(heard, row.asked) << row.what;
        prepares = durable = 1;
        if (row.at == no_profile)
            std::filesystem::remove(dir_.at("work"));
        recorder::results.clear();
        if (std::string(row.words) == "none") {
            EXPECT_EQ(install(all), 0) << "the next try after: " << row.what;
        }
    }
}

TEST_F(Execute, ARemoveThatARebootCutGoesOnAndStillKnowsTheInstall) {
    for (const int child : {2, 3})
        for (const bool fails : {false, true}) {
            stores all(dir_.at("store"));
            ASSERT_EQ(install(all, km::m_binary_file | km::m_force), 0);
            result_of("do 2 1 b", child);
            EXPECT_EQ(again(all, a_reverse), child);
            EXPECT_EQ(status(all.entry()), "2/2");
            recorder::results.clear();
            // With result 3 the tree is through: only its cleanup is left, which cannot fail it.
            result_of("do 2 1 b", fails ? 9 : 0);
            const bool still_fails = fails && child == 2;
            EXPECT_EQ(again(all, a_reverse, km::m_during_reboot), still_fails ? 9 : 0) << child;
            EXPECT_EQ(status(all.entry()), still_fails ? "2/E" : "none") << child;
            if (still_fails) {
                EXPECT_EQ(all.entry()->last_action, a_execute);
            }
            recorder::results.clear();
        }
}

TEST_F(Execute, ARepairIsMergedIntoTheProfileOfTheWholePackage) {
    stores all(dir_.at("store"));
    ASSERT_EQ(install(all), 0);
    auto part = make({"b", "c"});
    part->find("b", 1)->caption = "mended";
    all.give(*part);
    EXPECT_EQ(run(*part, a_execute, km::m_repair), 0);
    EXPECT_EQ(status(all.entry()), "2/2");
    const auto profile = from_profile(all);
    ASSERT_TRUE(profile);
    EXPECT_EQ(profile->count_commands(), 3);
    EXPECT_EQ(profile->find("b", 1)->caption, ustring("mended"));
    EXPECT_EQ(files_in("work"), 1);

    auto lost = make({"b"});
    all.give(*lost);
    std::filesystem::remove(all.entry()->profile_name.mbcs_str());
    EXPECT_EQ(run(*lost, a_execute, km::m_source), 10) << "no profile to merge into";
    EXPECT_EQ(status(all.entry()), "2/2");
}

TEST_F(Execute, AReferenceThatCannotGoWholeIsPutBack) {
    const struct {
        const char* stuck; // a name that cannot be removed
        int of_package, of_undo, answer;
        const char* words;
        bool undo_stays;
    } rows[] = {{"", 1, 1, 0, "none", false},         {"", 0, 1, 0, "5/5", false},
                {"", 1, 0, 0, "none", true},          {"work/PP1", 1, 1, 10, "5/E", true},
                {"work/PP1", 0, 1, 0, "5/5", false},  {"work/PP2", 1, 1, 10, "5/5", true},
                {"backup/UP1", 1, 1, 10, "5/5", true}};
    for (const auto& row : rows) {
        stores all(dir_.at("store"));
        cm_catalog_entry entry, of_undo;
        entry.cm_status = entry.current_cm_status = 5;
        entry.profile_name = pathname(dir_.write("work/PP1", "profile").c_str());
        of_undo.profile_name = pathname(dir_.write("work/PP2", "profile").c_str());
        entry.undo_package_name = pathname(dir_.write("backup/UP1", "undo").c_str());
        all.put(entry);
        all.catalog.update(new km::cm_catalog_key(entry.undo_package_name.get_text(), "1.0.0"),
                           of_undo.clone());
        if (*row.stuck) {
            std::filesystem::remove(dir_.at(row.stuck));
            dir_.write(std::string(row.stuck) + "/full", "");
        }
        auto package = make();
        all.give(*package);
        package->catalog_key = km::cm_catalog_key("pkg", "1");
        ASSERT_EQ(package->find_catalog_entry(0), 1);
        const std::string what = row.stuck + std::to_string(row.of_package);
        EXPECT_EQ(package->delete_package_reference(row.of_package, row.of_undo), row.answer);
        EXPECT_EQ(status(all.entry()), row.words) << what;
        EXPECT_EQ(all.entry(dir_.at("backup/UP1").c_str(), "1.0.0") != nullptr, row.undo_stays)
            << what;
        EXPECT_EQ(row.answer == 0 && row.of_package, !dir_.exists("work/PP1")) << what;
        std::filesystem::remove_all(dir_.at("work"));
        std::filesystem::remove_all(dir_.at("backup"));
    }
}

TEST_F(Execute, HistoryIsResetBehindASuccessfulInstallOnly) {
    for (const int connected : {0, 1}) {
        stores all(dir_.at("store"));
        all.put(cm_catalog_entry(), "old");
        all.put(cm_catalog_entry(), "older");
        for (const int fails : {1, 0}) {
            auto package = make();
            package->history_reset = 1;
            all.give(*package);
            package->connected = connected;
            result_of("can 1 1 a", fails ? 9 : 0);
            EXPECT_EQ(package->execute(a_execute, km::m_force | km::m_binary_file, 0),
                      fails ? 9 : 0);
            EXPECT_EQ(all.entry("older") != nullptr, fails == 1);
        }
        EXPECT_EQ(all.catalog.size(), 1);
        EXPECT_EQ(dir_.exists("work/reset"), connected == 1) << "a sign for the host";
    }
}

TEST_F(Execute, DefaultVariablesAreSavedOnceAndNeverOverwritten) {
    dir_.write("znpis.var", "mine = kept\nour=kept\n");
    stores all(dir_.at("store"));
    km::variable_list defaults;
    for (const char* name : {"mine", "our", "new"})
        defaults.set_value(name, "default");
    auto package = make();
    package->variables = &defaults;
    package->save_default_variables_flag = 1;
    all.give(*package);
    EXPECT_EQ(run(*package, a_execute, 0), 0);
    EXPECT_EQ(dir_.read("znpis.var"), "mine = kept\nour=kept\n") << "not from a profile";
    EXPECT_EQ(run(*package, a_execute, km::m_force | km::m_binary_file), 0);
    EXPECT_EQ(dir_.read("znpis.var"), "mine = kept\nour=kept\nnew = default\n");
    const std::string told = text_of(all.messages);
    EXPECT_HAS(told, "(mine) is already present");
    EXPECT_HAS(told, "(our) is already present");
    EXPECT_EQ(told.find("(new)"), std::string::npos);
}
