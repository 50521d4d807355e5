// catalog_store: the catalog and the reference counts of a state, opened and locked
// formats: docs/formats/persistent-table.md, docs/formats/reference-counts.md
// invariants: nothing is changed before the lock is held; a file that some entry names is never
// swept
#include "catalog_store.h"

#include "base/msg_supp.h"
#include "codec.h"
#include "decode_channel.h"
#include "durable.h"
#include "file_channel.h"
#include "holders.h"
#include "intent.h"
#include "location.h"
#include "lockfile.h"
#include "command.h"
#include "lookup.h"
#include "package_stream.h"
#include "made_directories.h"
#include "program_files.h"
#include "object_command.h"
#include "package_file.h"
#include "report_writer.h"
#include "status_words.h"
#include "stop_request.h"
#include "target_root.h"
#include "upgrade_record.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

constexpr const char* dummy_package = "@@_dummy_package_for_autoshare_@@";

// "pid 123 (kmctl) since 10:00:00", from what the holder wrote into the lock file.
std::string holder_of(const std::string& lock_file) {
    std::ifstream in(lock_file);
    long pid = 0, since = 0;
    std::string command;
    if (!(in >> pid >> since >> command))
        return "another process";
    char clock[32] = "";
    const std::time_t seconds = since;
    std::tm local{};
    if (::localtime_r(&seconds, &local))
        std::strftime(clock, sizeof clock, "%Y-%m-%d %H:%M:%S", &local);
    return "process " + std::to_string(pid) + " (" + command + ", since " + clock + ")";
}

std::string damaged_text(const std::string& file) {
    return "The catalog " + file +
           " is damaged. Nothing was changed. 'kmctl check --repair' writes what can still be read "
           "to a new file and keeps the damaged one beside it.";
}

bool decodes_as_table(const std::string& path) {
    km::file_input_channel in{km::pathname(path.c_str())};
    if (in.get_error())
        return false;
    in.inhibit(1);
    km::decode_channel channel(&in);
    km::decoder from(&channel);
    const std::unique_ptr<km::Hashtable> table(from.take_owned_object<km::Hashtable>());
    return table && from.get_status() == 0;
}

} // namespace

catalog_store::catalog_store() = default;
catalog_store::~catalog_store() { close(); }

void catalog_store::close() {
    counts_.reset();
    catalog_.reset();
    lock_.reset();
}

bool catalog_store::open(access_kind kind, long seconds, outcome& result) {
    directory_ = setting("product_dir") + "/catalog";
    file_ = directory_ + "/packages.pht";
    if (kind == access_kind::read) {
        std::error_code error;
        if (!fs::exists(file_, error)) {
            catalog_ = std::make_unique<km::Persistent_Hashtable>();
            return true;
        }
        if (!load(result))
            return false;
        counts_ = std::make_unique<km::cm_ref_count_table>(km::pathname(directory_.c_str()), 1);
        return true;
    }
    km::make_directories_durably(km::pathname(directory_.c_str()));
    if (!lock(seconds, result) || !km::Persistent_Hashtable::recover(km::pathname(file_.c_str()))) {
        if (!result.failed())
            result.fail(exit_failed, "catalog", damaged_text(file_));
        return false;
    }
    if (!load(result) || !restore_counts(result))
        return false;
    counts_ = std::make_unique<km::cm_ref_count_table>(km::pathname(directory_.c_str()), 0);
    if (!finish_removals(result))
        return false;
    heal_upgrades(*this, result);
    prune_counts();
    sweep();
    sweep_replacements();
    hand_over_strays();
    sweep_sources(*this);
    return true;
}

bool catalog_store::lock(long seconds, outcome& result) {
    lock_ = std::make_unique<km::semaphore>(km::pathname(file_.c_str()), 0);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (;;) {
        const int answer = lock_->wait2(0);
        if (answer == km::semaphore::acquired)
            return true;
        const std::string lock_file = lock_->get_lock_file().mbcs_str();
        if (answer == km::semaphore::failed) {
            result.fail(exit_failed, "lock",
                        "The lock file " + lock_file + " cannot be made: " + std::strerror(errno) +
                            ".");
            return false;
        }
        if (seconds >= 0 && std::chrono::steady_clock::now() >= until) {
            result.fail(exit_busy, "busy",
                        "The catalog is in use by " + holder_of(lock_file) +
                            ". Try again later, or wait longer with --wait SECONDS.",
                        "pending");
            return false;
        }
        if (km::stop_requested()) {
            result.fail(exit_busy, "stopped", "Stopped while waiting for the catalog.", "pending");
            return false;
        }
        ::usleep(100000);
    }
}

std::string catalog_store::holder() {
    const std::string file = setting("product_dir") + "/catalog/packages.pht";
    km::semaphore lock(km::pathname(file.c_str()), 0);
    return lock._IsLocked() ? holder_of(lock.get_lock_file().mbcs_str()) : "";
}

bool catalog_store::load(outcome& result) {
    catalog_ =
        std::make_unique<km::Persistent_Hashtable>(km::pathname(file_.c_str()), 0, 0, nullptr);
    switch (catalog_->get_table_error()) {
    case 0:
        return true;
    case km::Persistent_Hashtable::cannot_open:
        result.fail(exit_failed, "catalog",
                    "The catalog " + file_ + " cannot be opened: " + std::strerror(errno) + ".");
        return false;
    default:
        result.fail(exit_failed, "catalog", damaged_text(file_));
        return false;
    }
}

// A table that is gone or cannot be read would be replaced by an empty one, and objects that
// packages share would go with the first of them.
bool catalog_store::restore_counts(outcome& result) {
    const std::string table = directory_ + "/rct.tme";
    const std::string backup = directory_ + "/rctbak.tme";
    std::error_code error;
    const bool has_table = fs::exists(table, error), has_backup = fs::exists(backup, error);
    if (has_table ? decodes_as_table(table) : !has_backup)
        return true;
    if (has_backup && decodes_as_table(backup)) {
        fs::rename(backup, table, error);
        if (!error)
            return true;
        result.fail(exit_failed, "counts",
                    "The reference counts " + backup + " cannot be restored: " + error.message() +
                        ".");
        return false;
    }
    // A backup is whole before its table goes: without a table this one is the first that was
    // begun.
    if (!has_table && fs::remove(backup, error))
        return true;
    result.fail(exit_failed, "counts",
                "The reference counts " + table +
                    " cannot be read, and there is no good backup of them. Nothing was changed. "
                    "'kmctl check --repair' takes them from the profiles of the packages.");
    return false;
}

const km::cm_catalog_entry* catalog_store::find(const std::string& name,
                                                const std::string& version) const {
    return catalog_->get_as<km::cm_catalog_entry>(
        km::cm_catalog_key(km::ustring(name.c_str()), km::ustring(version.c_str())));
}

namespace {
// The last step of a removal, after everything of the package is gone: its entry goes, too.
bool is_ended_removal(const km::cm_catalog_entry& entry) {
    return entry.last_action == km::a_reverse && entry.cm_status == km::cs_committed &&
           entry.current_cm_status == km::cs_committed &&
           entry.operation_in_progress == km::o_none && entry.current_result == 0;
}
} // namespace

// The files of these packages are swept behind this, once the catalog names them no more.
bool catalog_store::finish_removals(outcome& result) {
    km::Keyslist entries(*catalog_);
    while (km::HashtableEntry* one = entries.next_entry()) {
        const auto* key = dynamic_cast<const km::cm_catalog_key*>(one->get_key());
        const auto* entry = dynamic_cast<const km::cm_catalog_entry*>(one->get_value());
        if (key && entry && is_ended_removal(*entry))
            finished_.push_back({key->name.mbcs_str(), key->version.mbcs_str()});
    }
    bool good = true;
    for (const auto& id : finished_) {
        const km::cm_catalog_key key(km::ustring(id.name.c_str()), km::ustring(id.version.c_str()));
        good = catalog_->remove(&key) && good;
    }
    if (finished_.empty() || (good && flush()))
        return true;
    result.fail(exit_failed, "catalog",
                "The catalog " + file_ + " cannot be written: " + std::strerror(errno) + ".");
    return false;
}

// Counts of packages that the catalog does not know: a kill fell between counts and entry.
void catalog_store::prune_counts() {
    struct stray {
        km::ustring object, name, version;
    };
    std::vector<stray> strays;
    if (const km::Hashtable* table = counts_->get_table()) {
        km::Keyslist objects(*table);
        while (km::HashtableEntry* one = objects.next_entry()) {
            const auto* object = dynamic_cast<const km::ustring*>(one->get_key());
            const auto* counter = dynamic_cast<const km::counter*>(one->get_value());
            for (int i = 0; object && counter && i < counter->get_elements().size(); ++i) {
                const auto* by = counter->get_elements().at<km::counter_element>(i);
                if (by && by->name != km::ustring(dummy_package) &&
                    !catalog_->get(km::cm_catalog_key(by->name, by->version)))
                    strays.push_back({*object, by->name, by->version});
            }
        }
    }
    for (const auto& one : strays)
        counts_->reset_counter(one.object, one.name, one.version);
    if (!strays.empty())
        counts_->commit();
}

std::set<std::string> catalog_store::named_files() const {
    std::set<std::string> named;
    km::Keyslist entries(*catalog_);
    while (km::HashtableEntry* one = entries.next_entry())
        if (const auto* entry = dynamic_cast<const km::cm_catalog_entry*>(one->get_value())) {
            named.insert(entry->profile_name.mbcs_str());
            named.insert(entry->undo_package_name.mbcs_str());
        }
    return named;
}

// Profiles and backup packages that a kill left without an entry. What is younger than the lock may
// be somebody's work of this moment.
void catalog_store::sweep() {
    const std::set<std::string> named = named_files();
    const auto now = fs::file_time_type::clock::now();
    for (const auto& [setting_name, prefix] :
         {std::pair{"working_dir", "PP"}, std::pair{"backup_dir", "UP"}}) {
        std::error_code error;
        for (const auto& one : fs::directory_iterator(setting(setting_name), error)) {
            const std::string name = one.path().filename().string();
            if (name.compare(0, 2, prefix) != 0 || named.count(one.path().string()) ||
                !one.is_regular_file(error))
                continue;
            if (one.last_write_time(error) < now && !error)
                fs::remove(one.path(), error);
        }
    }
}

// What a kill left of a file that was being replaced.
void catalog_store::sweep_replacements() {
    for (const char* below : {"/intent", "/source", "/upgrade", "/made", "/paths"}) {
        std::vector<fs::path> left;
        std::error_code error;
        for (const auto& one :
             fs::recursive_directory_iterator(setting("working_dir") + below, error))
            if (one.path().filename().string().find(".km~") != std::string::npos)
                left.push_back(one.path());
        for (const auto& path : left)
            fs::remove(path, error);
    }
}

// Notes about directories of packages that a kill left without an entry.
void catalog_store::hand_over_strays() {
    std::vector<package_id> strays;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(setting("working_dir") + "/made", error)) {
        const package_id id = parse_id(one.path().filename().string());
        if (!id.version.empty() && !find(id.name, id.version))
            strays.push_back(id);
    }
    for (const auto& id : strays)
        km::hand_over_made_directories(id.name, id.version);
    km::prune_left_directories();
    for (const auto& one : read_intents()) // its operation took the entry away, and was cut then
        if (one.command != "install" && one.command != "upgrade" &&
            !find(one.id.name, one.id.version))
            end_cut_run(one, "The " + one.command + " of " + one.id.text() +
                                 " has ended; it had been cut at its end");
    std::vector<package_id> lists;
    for (const auto& one : fs::directory_iterator(setting("working_dir") + "/paths", error))
        if (const package_id id = parse_id(one.path().filename().string());
            !find(id.name, id.version))
            lists.push_back(id);
    for (const auto& id : lists)
        forget_holders(id);
    km::sweep_private_directories([this](const std::string& name, const std::string& version) {
        return find(name, version) != nullptr;
    });
}

bool catalog_store::is_on_touched() const {
    struct stat about {};
    return ::stat(file_.c_str(), &about) == 0 && km::is_touched(about.st_dev);
}

int catalog_store::flush() const {
    const int descriptor = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return errno == ENOENT;
    const int done = km::sync_descriptor(descriptor);
    ::close(descriptor);
    return done;
}

namespace {
// A name that nothing has yet, so that an older damaged file is not lost under a newer one.
std::string free_name(const std::string& wanted) {
    std::error_code error;
    std::string name = wanted;
    for (int i = 1; fs::exists(name, error); ++i)
        name = wanted + "." + std::to_string(i);
    return name;
}
} // namespace

bool catalog_store::write_anew(outcome& result) {
    km::pathname copy((file_ + ".repaired").c_str());
    std::error_code error;
    fs::remove(copy.mbcs_str(), error);
    {
        const km::Persistent_Hashtable damaged(km::pathname(file_.c_str()), 0, 0, &copy);
        const km::Persistent_Hashtable written(copy, 0, 0, nullptr);
        if (written.get_table_error()) {
            result.fail(exit_failed, "catalog",
                        "Nothing can be read of the catalog " + file_ + ".");
            return false;
        }
        result.info("catalog", std::to_string(written.size()) + " entries could be read.");
    }
    const std::string kept = free_name(file_ + ".damaged");
    fs::rename(file_, kept, error);
    if (!error)
        fs::rename(copy.mbcs_str(), file_, error);
    if (error) {
        result.fail(exit_failed, "catalog",
                    "The repaired catalog cannot be put in place: " + error.message() + ".");
        return false;
    }
    km::sync_directory(km::pathname(directory_.c_str()));
    result.info("catalog", "The catalog was written anew; the old file is " + kept + ".");
    return load(result) && keep_lost_profiles(result);
}

// What the catalog lost is still told by the profiles, which the next command would sweep.
bool catalog_store::keep_lost_profiles(outcome& result) {
    const std::set<std::string> named = named_files();
    std::vector<fs::path> lost;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(setting("working_dir"), error))
        if (one.path().filename().string().compare(0, 2, "PP") == 0 &&
            !named.count(one.path().string()))
            lost.push_back(one.path());
    for (const auto& path : lost) {
        km::spmessage messages;
        outcome ignored;
        const auto package = open_profile(path.string(), messages, ignored);
        if (!package)
            continue;
        const auto kept = free_name(path.parent_path() / ("lost." + path.filename().string()));
        fs::rename(path, kept, error);
        const package_id id{package->name.mbcs_str(), package->version.mbcs_str()};
        result.warn("lost", "The catalog knows nothing of " + id.text() +
                                " any more. Its files may be in place; 'kmctl install --force "
                                "FILE' makes it known again. Its profile is kept as " +
                                kept + ".");
    }
    return true;
}

bool catalog_store::repair(long seconds, outcome& result) {
    catalog_store store;
    store.directory_ = setting("product_dir") + "/catalog";
    store.file_ = store.directory_ + "/packages.pht";
    km::file(km::pathname(store.directory_.c_str())).mk_tree();
    if (!store.lock(seconds, result))
        return false;
    std::error_code error;
    outcome opening;
    const bool is_whole = !fs::exists(store.file_, error) ||
                          (km::Persistent_Hashtable::recover(km::pathname(store.file_.c_str())) &&
                           store.load(opening));
    if (!is_whole && !store.write_anew(result))
        return false;
    return store.repair_counts(result);
}

namespace {
void count_shared(km::cm_composite_command& tree, const km::cm_catalog_key& by,
                  km::cm_ref_count_table& counts) {
    for (km::list_iterator all(tree.get_children()); all.hasMoreElements();) {
        auto* command = all.nextElement();
        if (auto* inner = dynamic_cast<km::cm_composite_command*>(command))
            count_shared(*inner, by, counts);
        else if (const auto* add = dynamic_cast<km::cm_add_object*>(command);
                 add && add->object && add->object->is_shared && add->is_effective)
            counts.set_counter(add->object->get_name(), by.name, by.version,
                               add->object->get_ref_count());
    }
}
} // namespace

// The profiles tell which package shares what.
bool catalog_store::repair_counts(outcome& result) {
    outcome damaged;
    if (restore_counts(damaged))
        return true;
    std::error_code error;
    for (const char* name : {"/rct.tme", "/rctbak.tme"})
        if (const std::string table = directory_ + name; fs::exists(table, error))
            fs::rename(table, free_name(table + ".damaged"), error);
    outcome opening;
    if (!catalog_ && !load(opening))
        return true; // no catalog, and nothing to count
    km::cm_ref_count_table counts(km::pathname(directory_.c_str()), 0);
    for (const auto& one : find_packages(*catalog_, "")) {
        km::spmessage messages;
        outcome ignored;
        const auto package = open_profile(one.entry->profile_name.mbcs_str(), messages, ignored);
        if (package)
            count_shared(*package, {package->name, package->version}, counts);
        else
            result.warn("counts", "The profile of " + one.id.text() +
                                      " cannot be read; what it shares is not counted.");
    }
    if (!counts.commit()) {
        result.fail(exit_failed, "counts",
                    "The reference counts in " + directory_ + " cannot be written.");
        return false;
    }
    result.info("counts", "The reference counts were taken from the profiles anew; the old files "
                          "are kept as .damaged.");
    return true;
}

} // namespace kmhost
