// Which operation may run in which state of a package.
#include "booting_list.h"
#include "package_fixture.h"

using namespace km_test;
using km::cm_catalog_entry;
using km::cs_error;

namespace {

constexpr int install = km::a_execute, take_away = km::a_reverse;
constexpr int unset = -1;

class Gate : public PackageTest {
  protected:
    // Answer of a fresh package that stands before the catalog.
    int ask(stores& all, int operation, int action, unsigned mode, int* status = nullptr) {
        auto package = make({});
        all.give(*package);
        int ignored = 0;
        return package->validate_cm_status(operation, action, static_cast<int>(mode), 0,
                                           status ? status : &ignored);
    }
    static cm_catalog_entry state(int stable, int now, int last_action = install) {
        cm_catalog_entry entry;
        entry.cm_status = stable;
        entry.current_cm_status = now;
        entry.last_action = last_action;
        entry.operation_in_progress = km::o_none;
        return entry;
    }
};

} // namespace

TEST_F(Gate, WhatIsAllowedInEachStateAndInItsError) {
    const unsigned force = km::m_force, repair = km::m_repair, source = km::m_source;
    const unsigned clever = km::m_intelligent_remove, prepared = km::m_transactional;
    struct question {
        const char* what;
        std::vector<int> operations;
        int action;
        unsigned mode;
    };
    const std::vector<int> executes = {0, 1, 2, 3, 4};
    const question questions[] = {{"install", executes, install, 0},
                                  {"install forced", executes, install, force},
                                  {"repair", executes, install, repair},
                                  {"source", executes, install, source},
                                  {"remove", executes, take_away, 0},
                                  {"remove forced", executes, take_away, force},
                                  {"remove repair", executes, take_away, repair},
                                  {"remove clever", executes, take_away, clever},
                                  {"rollback", {5}, install, 0},
                                  {"rollback prepared", {5}, install, prepared},
                                  {"undo", {6, 7}, install, 0},
                                  {"accept", {9}, install, 0},
                                  {"accept clever", {9}, install, clever},
                                  {"commit", {10}, install, 0},
                                  {"verify", {8}, install, 0},
                                  {"any", {11}, install, 0}};
    constexpr int bad = 9; // refused by the error: the status tells of both words
    const struct {
        int current, now, last;
        int answers[16];
    } rows[] = {
        // clang-format off
        //                     install      | remove      | rollback | undo | accept | commit verify any
        {unset, unset, install, {0, 0, 3, 3,     0, 0, 3, 0,   3, 3,      3,     3, 3,    3,     3,     3}},
        {0, 0, install,         {0, 0, 0, 0,     2, 2, 2, 2,   1, 1,      1,     1, 1,    1,     0,     1}},
        {1, 1, install,         {1, 0, 1, 1,     1, 0, 1, 1,   0, 1,      1,     1, 1,    0,     1,     1}},
        {2, 2, install,         {1, 0, 0, 0,     0, 0, 0, 0,   1, 1,      1,     1, 0,    1,     0,     0}},
        {3, 3, install,         {1, 0, 1, 1,     1, 0, 1, 1,   0, 0,      1,     0, 0,    0,     1,     1}},
        {4, 4, install,         {1, 0, 1, 1,     1, 0, 1, 1,   0, 0,      1,     0, 0,    0,     1,     1}},
        {5, 5, install,         {1, 0, 1, 1,     1, 0, 1, 0,   1, 1,      0,     0, 0,    1,     0,     1}},
        {6, 6, install,         {1, 0, 1, 1,     1, 0, 1, 1,   1, 1,      1,     1, 1,    0,     0,     1}},
        {0, 0, take_away,       {2, 2, 2, 2,     0, 0, 0, 0,   1, 1,      1,     1, 1,    1,     0,     1}},
        {1, 1, take_away,       {1, 0, 1, 1,     1, 0, 1, 1,   0, 1,      1,     1, 1,    0,     1,     1}},
        {2, 2, take_away,       {0, 0, 3, 3,     1, 0, 3, 1,   1, 1,      1,     1, 0,    1,     0,     0}},
        {3, 3, take_away,       {1, 0, 1, 1,     1, 0, 1, 1,   0, 0,      1,     0, 0,    0,     1,     1}},
        {4, 4, take_away,       {1, 0, 1, 1,     1, 0, 1, 1,   0, 0,      1,     0, 0,    0,     1,     1}},
        {5, 5, take_away,       {1, 0, 1, 1,     1, 0, 1, 0,   1, 1,      0,     0, 0,    1,     0,     1}},
        {6, 6, take_away,       {1, 0, 1, 1,     1, 0, 1, 1,   1, 1,      1,     1, 1,    0,     0,     1}},
        {0, cs_error, install,   {9, 0, 9, 9,    9, 2, 9, 9,   9, 9,      9,     9, 9,    9,     0,     1}},
        {1, cs_error, install,   {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     1,     1}},
        {2, cs_error, install,   {9, 0, 0, 0,    9, 0, 0, 9,   9, 9,      9,     9, 9,    9,     0,     0}},
        {3, cs_error, install,   {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     1,     1}},
        {4, cs_error, install,   {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      1,     9, 9,    9,     1,     1}},
        {5, cs_error, install,   {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      0,     9, 9,    9,     0,     1}},
        {6, cs_error, install,   {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     0,     1}},
        {0, cs_error, take_away, {9, 2, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     0,     1}},
        {1, cs_error, take_away, {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     1,     1}},
        {2, cs_error, take_away, {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     0,     0}},
        {3, cs_error, take_away, {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     1,     1}},
        {4, cs_error, take_away, {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      1,     9, 9,    9,     1,     1}},
        {5, cs_error, take_away, {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      0,     9, 9,    9,     0,     1}},
        {6, cs_error, take_away, {9, 0, 9, 9,    9, 0, 9, 9,   9, 9,      9,     9, 9,    9,     0,     1}},
    }; // clang-format on
    stores all(dir_.at("store"));
    for (const auto& row : rows) {
        const cm_catalog_entry before = state(row.current, row.now, row.last);
        if (row.current != unset)
            all.put(before);
        const int* answer = row.answers;
        for (const auto& one : questions) {
            const auto what = std::string(one.what) + " in " + std::to_string(row.current) +
                              (row.now == cs_error ? " in error" : "") +
                              (row.last == install ? "" : ", removed");
            for (const int operation : one.operations) {
                int status = 77;
                EXPECT_EQ(ask(all, operation, one.action, one.mode, &status),
                          *answer == bad ? 1 : *answer)
                    << what << " " << operation;
                EXPECT_EQ(status, *answer == bad ? row.current | cs_error : row.current) << what;
            }
            ++answer;
        }
        if (row.current != unset) {
            EXPECT_EQ(PackageTest::status(all.entry()), PackageTest::status(&before));
        }
    }
    EXPECT_EQ(text_of(all.messages), "");
}

TEST_F(Gate, StatesBesideTheTable) {
    const unsigned force = km::m_force, repair = km::m_repair, source = km::m_source;
    const auto with = [](cm_catalog_entry entry, int result, int operation = km::o_none,
                         int backup = 0, std::uint32_t bits = 0) {
        entry.current_result = result;
        entry.operation_in_progress = operation;
        entry.backup_availability = backup;
        entry.db_status = static_cast<std::int32_t>(bits);
        return entry;
    };
    const cm_catalog_entry error = state(2, cs_error),
                           removed_error = state(2, cs_error, take_away);
    const cm_catalog_entry discovered = with(state(2, 2), 0, 14, 0, km::db_discovered);
    const int e = 2 | cs_error;
    const struct {
        const char* what;
        cm_catalog_entry entry;
        int operation, action;
        unsigned mode;
        int answer, status;
    } rows[] = {
        {"RC--- install", state(2, 2, take_away), 0, install, 0, 0, 2},
        {"RC--- repair", state(2, 2, take_away), 0, install, repair, 3, 2},
        {"RC--- source", state(2, 2, take_away), 0, take_away, source, 3, 2},
        {"removed, install", state(0, 0, take_away), 0, install, force, 2, 0},
        {"IC--E install", error, 0, install, 0, 1, e},
        {"IC--E force", error, 0, install, force, 0, 2},
        {"IC--E repair", error, 0, install, repair, 0, 2},
        {"RC--E repair", removed_error, 0, install, repair, 1, e},
        {"IP--E repair", state(1, cs_error), 0, install, repair, 1, 1 | cs_error},
        {"ICU-E undo", state(5, cs_error), 6, install, 0, 0, 5},
        {"IPU-E undo", state(4, cs_error), 7, install, 0, 1, 4},
        {"IC--E undo", error, 6, install, 0, 1, e},
        {"IC--E verify", error, 8, install, 0, 0, 2},
        {"IC--E any", error, 11, install, 0, 0, 2},
        {"IP--E commit", state(1, cs_error), 10, install, 0, 1, 1 | cs_error},
        {"I---E install", with(state(cs_error, cs_error), 10, 1, 1), 0, install, 0, 1, cs_error},
        {"I---E force", state(cs_error, cs_error), 0, install, force, 0, cs_error},
        {"waits for a reboot", with(state(2, 2), 5), 0, install, force, 4, 2},
        {"hidden", with(state(2, 2), 5, 14, 0, km::db_hidden), 8, install, 0, 5, unset},
        {"discovered, verify", discovered, 8, install, 0, 1, unset},
        {"discovered, remove", discovered, 0, take_away, force | 1, 0, 2},
        {"discovered, remove undoable", discovered, 0, take_away, km::m_undoable, 1, unset},
        {"discovered, repair", discovered, 0, install, repair, 1, unset},
        {"discovered, install forced", discovered, 0, install, force, 0, 2},
        // What was cut goes on: the same action again.
        {"cut by a checkpoint", with(state(2, 2, take_away), 1), 0, take_away, 0, 0, 2},
        {"cut by a lost stream", with(state(2, 2, take_away), 6), 0, take_away, 0, 0, 2},
        {"cut, other action", with(state(1, 1, take_away), 6), 0, install, 0, 1, 1},
        {"cut behind the backup", with(state(2, 2, take_away), 0, 1, 1), 0, take_away, 0, 0, 2},
        {"not cut: complete", with(state(2, 2, take_away), 0, 14, 1), 0, take_away, 0, 1, 2},
        {"not cut: no backup", with(state(2, 2, take_away), 0, 1, 0), 0, take_away, 0, 1, 2},
    };
    for (const auto& row : rows) {
        stores all(dir_.at("store"));
        all.put(row.entry);
        int status = 77;
        EXPECT_EQ(ask(all, row.operation, row.action, row.mode, &status), row.answer) << row.what;
        EXPECT_EQ(status, row.status) << row.what;
        EXPECT_EQ(PackageTest::status(all.entry()), PackageTest::status(&row.entry)) << row.what;
    }
}

TEST_F(Gate, AnInterruptedOperationBecomesAnErrorUnlessARebootExplainsIt) {
    struct row {
        const char* what;
        bool listed, profile, forced;
        int answer;
        const char* words;
        bool message;
    };
    const row rows[] = {{"listed", true, true, false, 2, "2/5", false},
                        {"refused", false, true, false, 1, "E/E", true},
                        {"forced", false, true, true, 0, "E/E", false},
                        {"no profile", false, false, false, 2, "2/5", false}};
    for (const row& one : rows) {
        stores all(dir_.at("store"));
        auto package = make();
        all.give(*package);
        cm_catalog_entry entry = state(2, 5);
        if (one.profile)
            entry.profile_name = pathname(dir_.at("work/PP000001").c_str());
        all.put(entry);
        km::handle_booting_list("pkg", "1", one.listed, -1, 0);
        package->resume_stage = 3;
        int status = 0;
        EXPECT_EQ(package->validate_cm_status(0, install, one.forced ? 0x1000 : 0, 0, &status),
                  one.answer)
            << one.what;
        EXPECT_EQ(PackageTest::status(all.entry()), one.words) << one.what;
        EXPECT_EQ(text_of(all.messages).find("Entry state inconsistent") != std::string::npos,
                  one.message)
            << one.what;
        if (std::string(one.words) == "E/E") {
            EXPECT_EQ(all.entry()->current_result, 10);
            const auto profile = from_profile(all);
            ASSERT_TRUE(profile) << one.what;
            EXPECT_EQ(profile->resume_stage, 0);
            EXPECT_EQ(profile->count_commands(), 2);
        }
    }
}

TEST_F(Gate, TheEngineAsksOfItsOwnEntryAndNotOfTheCatalog) {
    stores all(dir_.at("store"));
    cm_catalog_entry hidden = state(2, 2);
    hidden.db_status = static_cast<std::int32_t>(km::db_hidden);
    all.put(hidden);
    auto package = make({});
    all.give(*package);
    package->external_call = 0;
    package->catalog_entry = new cm_catalog_entry(state(5, 1));
    int status = 77;
    EXPECT_EQ(package->validate_cm_status(km::o_rollback, install, km::m_transactional, 0, &status),
              0);
    EXPECT_EQ(status, unset) << "an allowed one leaves it";
    EXPECT_EQ(package->validate_cm_status(km::o_undo, install, 0, 0, &status), 1);
    EXPECT_EQ(status, 1);
}

TEST_F(Gate, TheDiagramIsReadInsideItsTableOnly) {
    EXPECT_EQ(km::cm_package::next_status(km::o_commit, km::cs_prepared_undoable), 5);
    EXPECT_EQ(km::cm_package::next_status(km::o_undo_ep, km::cs_committed_undoable), 6);
    EXPECT_EQ(km::cm_package::next_status(km::o_undo, cs_error), cs_error);
    EXPECT_EQ(km::cm_package::next_status(km::o_none, 3), 3);
    EXPECT_EQ(km::cm_package::next_status(-1, -7), -7);
}
