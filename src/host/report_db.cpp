// report_db: reports as rows of a SQLite database
// format: docs/formats/report-db.md
// invariant: the key of a report is unique in the table, and a repeat changes nothing
#include "durable.h"
#include "report_channels.h"
#include "sqlite_library.h"

#include <cstdlib>
#include <memory>
#include <sys/stat.h>

namespace kmhost {

namespace {

constexpr int table_version = 1;

constexpr const char* make_table =
    "CREATE TABLE IF NOT EXISTS reports ("
    "id TEXT NOT NULL PRIMARY KEY, time TEXT, operation TEXT, mode TEXT, name TEXT, version TEXT,"
    " state TEXT, result TEXT, message TEXT, exception INTEGER, is_primary INTEGER,"
    " distribution_id TEXT, endpoint_name TEXT, endpoint_id TEXT, endpoint_guid TEXT, spname TEXT,"
    " spo_oid TEXT, base_name TEXT, base_version TEXT, base_oid TEXT, origin_user TEXT,"
    " user_name TEXT, operation_type INTEGER, operation_mode INTEGER, pathname TEXT)"
    " WITHOUT ROWID; PRAGMA user_version = 1";

constexpr const char* insert_report =
    "INSERT OR IGNORE INTO reports (id, time, operation, mode, name, version, state, result,"
    " message, distribution_id, endpoint_name, endpoint_id, endpoint_guid, spname, spo_oid,"
    " base_name, base_version, base_oid, origin_user, user_name, pathname, exception, is_primary,"
    " operation_type, operation_mode)"
    " VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";

class database {
  public:
    explicit database(const sqlite_library& lib) : lib_(lib) {}
    ~database() { lib_.close(handle_); }
    database(const database&) = delete;
    database& operator=(const database&) = delete;

    bool open(const std::string& path, long seconds) {
        constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
        if (lib_.open_v2(path.c_str(), &handle_, flags, nullptr) != SQLITE_OK)
            return false;
        lib_.extended_result_codes(handle_, 1);
        lib_.busy_timeout(handle_, static_cast<int>(seconds * 1000));
        return true;
    }
    bool run(const char* text) {
        return lib_.exec(handle_, text, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    // -1 if it cannot be read.
    int user_version() {
        int version = -1;
        sqlite3_stmt* ask = nullptr;
        if (lib_.prepare_v2(handle_, "PRAGMA user_version", -1, &ask, nullptr) == SQLITE_OK &&
            lib_.step(ask) == SQLITE_ROW)
            version = lib_.column_int(ask, 0);
        lib_.finalize(ask);
        return version;
    }
    bool insert(const report_fields& report);
    std::string reason() const { return handle_ ? lib_.errmsg(handle_) : "not enough memory"; }

  private:
    const sqlite_library& lib_;
    sqlite3* handle_ = nullptr;
};

bool database::insert(const report_fields& r) {
    const std::string* const texts[] = {
        &r.key,           &r.exec_time,    &r.operation,      &r.mode,        &r.name,
        &r.version,       &r.state,        &r.exit_codes_msg, &r.message,     &r.distribution_id,
        &r.endpoint_name, &r.endpoint_id,  &r.endpoint_guid,  &r.spname,      &r.spo_oid,
        &r.base_name,     &r.base_version, &r.base_oid,       &r.origin_user, &r.user_name,
        &r.pathname};
    const long numbers[] = {r.exception, r.primary, r.operation_type, r.operation_mode};
    sqlite3_stmt* row = nullptr;
    if (lib_.prepare_v2(handle_, insert_report, -1, &row, nullptr) != SQLITE_OK)
        return false;
    int at = 0;
    for (const auto* text : texts)
        lib_.bind_text64(row, ++at, text->data(), text->size(), SQLITE_STATIC, SQLITE_UTF8);
    for (const long number : numbers)
        lib_.bind_int64(row, ++at, number);
    const bool done = lib_.step(row) == SQLITE_DONE;
    lib_.finalize(row);
    return done;
}

bool store(database& to, const report_fields& report, std::string& why) {
    if (!to.run("PRAGMA journal_mode = WAL") || !to.run("PRAGMA synchronous = FULL") ||
        !to.run("BEGIN IMMEDIATE"))
        return false;
    const int version = to.user_version();
    if (version > table_version) {
        why = "its table is of a newer version, " + std::to_string(version);
        return false;
    }
    return (version == table_version || to.run(make_table)) && to.insert(report) &&
           to.run("COMMIT");
}

// A device or a pipe would be waited for; the library tells little of a directory.
const char* fault_of(const std::string& path) {
    struct stat about {};
    if (path.front() != '/')
        return "report_db is no absolute path";
    return ::stat(path.c_str(), &about) == 0 && !S_ISREG(about.st_mode) ? "it is no plain file"
                                                                        : nullptr;
}

} // namespace

delivery deliver_to_db(const report_fields& report, const report_settings& settings,
                       std::string& why) {
    if (settings.db.empty())
        return delivery::not_set_up;
    std::string reason;
    if (const char* fault = fault_of(settings.db)) {
        reason = fault;
    } else if (const auto* lib = sqlite_library::get(reason)) {
        km::make_directories_durably(km::pathname(settings.db.c_str()).get_parent());
        database to(*lib);
        if (to.open(settings.db, settings.timeout) && store(to, report, reason))
            return delivery::done;
        if (reason.empty())
            reason = to.reason();
    }
    why = "the database " + settings.db + " did not take it: " + reason;
    return delivery::failed;
}

} // namespace kmhost
