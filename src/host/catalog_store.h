// catalog_store: the catalog and the reference counts of a state, opened and locked
#pragma once

#include "catalog.h"
#include "outcome.h"
#include "persistent_hashtable.h"
#include "refcounttable.h"
#include "words.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kmhost {

enum class access_kind { read, change };

// One opening for one command. A change takes the lock that guards everything below the product
// directory, mends what a crash left, restores the reference counts, and sweeps files that no entry
// names. A reader takes no lock and may see the catalog as it stood a moment ago.
class catalog_store {
  public:
    catalog_store();
    ~catalog_store();
    catalog_store(const catalog_store&) = delete;
    catalog_store& operator=(const catalog_store&) = delete;

    // Waits for the lock up to `seconds` (-1: for ever). False: `result` says why (exit 10 if
    // another process holds it, with who and since when; exit 1 for a damaged file, which is left
    // as it is).
    bool open(access_kind kind, long seconds, outcome& result);
    void close();

    km::Persistent_Hashtable& catalog() { return *catalog_; }
    km::cm_ref_count_table* counts() { return counts_.get(); }
    const std::string& file() const { return file_; }
    // Removals that a crash had cut behind their last change of the machine, and that the opening
    // brought to their end.
    const std::vector<package_id>& finished_removals() const { return finished_; }
    // Takes counts of packages that the catalog does not know out of the table.
    void prune_counts();
    // Whether the next km::flush_touched() flushes its file, too.
    bool is_on_touched() const;
    // Flushes the catalog's file. 1 or 0.
    int flush() const;

    const km::cm_catalog_entry* find(const std::string& name, const std::string& version) const;

    // Writes what can be read of a damaged catalog to a new file, and puts it in its place; the old
    // one stays beside it, and so do the profiles of packages that it lost. A whole catalog stays
    // as it is. False: `result` says why.
    static bool repair(long seconds, outcome& result);
    // Who holds the lock now, in words; empty for nobody. For readers.
    static std::string holder();

  private:
    bool lock(long seconds, outcome& result);
    bool load(outcome& result);
    bool restore_counts(outcome& result);
    bool write_anew(outcome& result);
    bool repair_counts(outcome& result);
    bool keep_lost_profiles(outcome& result);
    bool finish_removals(outcome& result);
    std::set<std::string> named_files() const;
    void sweep();
    void sweep_replacements();
    void hand_over_strays();

    std::string directory_;
    std::string file_;
    std::vector<package_id> finished_;
    std::unique_ptr<km::semaphore> lock_;
    std::unique_ptr<km::Persistent_Hashtable> catalog_;
    std::unique_ptr<km::cm_ref_count_table> counts_;
};

} // namespace kmhost
