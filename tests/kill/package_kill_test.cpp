// A process that dies at any named step of an install, a repair or a remove: what is stored is true
// at once, and the same call again comes to the good end.
#include "package/package_fixture.h"
#include "support/child.h"

using namespace km_test;

namespace {

constexpr unsigned fresh = km::m_binary_file, forced = fresh | km::m_force,
                   chained = fresh | km::m_transactional | km::m_auto_commit;

class PackageKill : public PackageTest {
  protected:
    enum operation { install, force, repair, take_away, chain };

    int run(stores& all, operation what) {
        auto package = what == take_away ? from_profile(all) : make();
        if (!package)
            return -99;
        all.give(*package);
        const unsigned mode = what == force     ? forced
                              : what == repair  ? km::m_repair
                              : what == chain   ? chained
                              : what == install ? fresh
                                                : 0U;
        const int action = what == take_away ? km::a_reverse : km::a_execute;
        int status = 0;
        const int word = static_cast<int>(mode);
        if (const int no = package->validate_cm_status(km::o_execute, action, word, 0, &status))
            return -no;
        return package->execute(action, word, 0);
    }
    void start_over(bool installed) {
        for (const char* name : {"work", "store", "target"}) {
            std::filesystem::remove_all(dir_.at(name));
            ::mkdir(dir_.at(name).c_str(), 0755);
        }
        if (!installed)
            return;
        stores all(dir_.at("store"));
        ASSERT_EQ(run(all, install), 0);
    }
};

} // namespace

TEST_F(PackageKill, TheSameCallAgainComesToTheEnd) {
    const struct {
        operation what;
        const char* point;
        const char* left; // status words behind the kill
    } cases[] = {{install, "execute.before_tree", "none"},
                 {install, "execute.after_tree", "none"},
                 {install, "finish.before_profile", "none"},
                 {install, "durable.before_rename", "none"},
                 {install, "finish.after_profile", "none"},
                 {install, "store.before_flush", "none"},
                 {install, "store.before_counts", "none"},
                 {install, "store.before_entry", "none"},
                 {install, "table.slot.before_mark", "none"},
                 {install, "store.after_entry", "2/2"},
                 {chain, "execute.before_commit", "1/1"},
                 {force, "reference.before_own_entry", "2/2"},
                 {force, "reference.after_entries", "none"},
                 {force, "reference.before_profile", "none"},
                 {force, "execute.after_tree", "none"},
                 {force, "store.before_entry", "none"},
                 {force, "store.after_entry", "2/2"},
                 {repair, "execute.after_tree", "2/2"},
                 {repair, "finish.after_profile", "2/2"},
                 {repair, "store.before_entry", "2/2"},
                 {repair, "store.after_entry", "2/2"},
                 {repair, "store.before_old_profile", "2/2"},
                 {take_away, "execute.before_tree", "2/2"},
                 {take_away, "execute.after_tree", "2/2"},
                 {take_away, "store.before_flush", "2/2"},
                 {take_away, "store.before_counts", "2/2"},
                 {take_away, "store.before_entry", "2/2"},
                 {take_away, "store.after_entry", "2/2"},
                 {take_away, "reference.before_own_entry", "2/2"},
                 {take_away, "reference.after_entries", "none"},
                 {take_away, "reference.before_profile", "none"}};
    for (const auto& one : cases) {
        const std::string what = std::to_string(one.what) + " " + one.point;
        start_over(one.what != install && one.what != chain);
        ASSERT_TRUE(dies_at(one.point, [&] {
            stores all(dir_.at("store"));
            run(all, one.what);
        })) << what;
        stores all(dir_.at("store"));
        ASSERT_EQ(status(all.entry()), one.left) << what;
        if (all.entry()) {
            EXPECT_TRUE(from_profile(all)) << "an entry names a whole profile: " << what;
        }
        const bool is_removed = all.entry() && all.entry()->inverse_action;
        if (is_removed) { // complete but for its reference: what is left to a host
            auto package = from_profile(all);
            package->catalog_key = km::cm_catalog_key("pkg", "1");
            ASSERT_EQ(package->find_catalog_entry(0), 1);
            EXPECT_EQ(package->delete_package_reference(1, 1), 0) << what;
        } else if (one.what == chain) { // a host reads in the entry what was to follow
            auto package = from_profile(all);
            int word = 0;
            ASSERT_EQ(package->validate_cm_status(km::o_commit, km::a_execute, 0, 0, &word), 0);
            EXPECT_EQ(package->commit(0, 0), 0);
        } else if (one.what != take_away || all.entry()) {
            const int answer = run(all, one.what);
            const bool stood_already = one.what == install && std::string(one.left) == "2/2";
            EXPECT_EQ(answer, stood_already ? -1 : 0) << what;
        }
        const bool stands = one.what != take_away;
        EXPECT_EQ(status(all.entry()), stands ? "2/2" : "none") << what;
        EXPECT_EQ(files_in("target"), stands ? 2 : 0) << what;
        EXPECT_EQ(all.counts.get_ref_count("b", "pkg", "1"), stands ? 1 : 0) << what;
        km::cm_ref_count_table stored(pathname(dir_.at("store").c_str()), 1);
        EXPECT_EQ(stored.get_ref_count("b", "pkg", "1"), stands ? 1 : 0) << what;
    }
}
