// catalog_bench: opening a catalog of many entries, beside a full scan of the same data in SQLite
// no format
// invariant: both sides read every field of every entry
#include "catalog.h"
#include "base_configuration.h"
#include "persistent_hashtable.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sqlite3.h>
#include <string>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

struct row {
    std::string name, version, profile;
    int numbers[12];
};

std::vector<row> make_rows(int count) {
    std::vector<row> all;
    for (int i = 0; i < count; ++i) {
        row one;
        one.name = "endpoint-package-" + std::to_string(i * 7919 % count);
        one.version = std::to_string(i % 9) + "." + std::to_string(i % 31);
        one.profile = "/var/lib/kmcore/work/PP" + std::to_string(100000 + i) + ".pro";
        for (int n = 0; n < 12; ++n)
            one.numbers[n] = i * (n + 3) % 97;
        all.push_back(std::move(one));
    }
    return all;
}

[[noreturn]] void die(const std::string& why) {
    std::fprintf(stderr, "catalog_bench: %s\n", why.c_str());
    std::exit(1);
}

km::cm_catalog_entry* entry_of(const row& from) {
    auto* entry = new km::cm_catalog_entry;
    std::int32_t* const fields[12] = {
        &entry->cm_status,      &entry->current_cm_status,      &entry->last_action,
        &entry->entry_mode,     &entry->operation_requested,    &entry->operation_in_progress,
        &entry->backup_package, &entry->backup_availability,    &entry->already_committed,
        &entry->inverse_action, &entry->entry_operation_result, &entry->status_at_start};
    for (int n = 0; n < 12; ++n)
        *fields[n] = from.numbers[n];
    entry->profile_name = km::pathname(from.profile.c_str());
    return entry;
}

void write_catalog(const std::string& file, const std::vector<row>& rows) {
    km::Persistent_Hashtable catalog(km::pathname(file.c_str()), 0, 1, nullptr);
    for (const row& one : rows)
        if (!catalog.put(new km::cm_catalog_key(km::ustring(one.name.c_str()),
                                                km::ustring(one.version.c_str())),
                         entry_of(one)))
            die("an entry cannot be written");
}

double read_catalog(const std::string& file, int expected) {
    const auto start = clock_type::now();
    {
        const km::Persistent_Hashtable catalog(km::pathname(file.c_str()), 0, 0, nullptr);
        if (catalog.get_table_error() || catalog.size() != expected)
            die("the catalog cannot be read");
    }
    return std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
}

void check(int answer, sqlite3* database) {
    if (answer != SQLITE_OK && answer != SQLITE_DONE && answer != SQLITE_ROW)
        die(sqlite3_errmsg(database));
}

void write_database(const std::string& file, const std::vector<row>& rows) {
    sqlite3* database = nullptr;
    check(sqlite3_open(file.c_str(), &database), database);
    check(sqlite3_exec(database,
                       "begin; create table catalog(name text, version text, profile text, n0 int, "
                       "n1 int, n2 int, n3 int, n4 int, n5 int, n6 int, n7 int, n8 int, n9 int, "
                       "n10 int, n11 int, primary key(name, version))",
                       nullptr, nullptr, nullptr),
          database);
    sqlite3_stmt* insert = nullptr;
    check(sqlite3_prepare_v2(database, "insert into catalog values(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)",
                             -1, &insert, nullptr),
          database);
    for (const row& one : rows) {
        sqlite3_bind_text(insert, 1, one.name.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_text(insert, 2, one.version.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_text(insert, 3, one.profile.c_str(), -1, SQLITE_STATIC);
        for (int n = 0; n < 12; ++n)
            sqlite3_bind_int(insert, 4 + n, one.numbers[n]);
        check(sqlite3_step(insert), database);
        check(sqlite3_reset(insert), database);
    }
    sqlite3_finalize(insert);
    check(sqlite3_exec(database, "commit", nullptr, nullptr, nullptr), database);
    sqlite3_close(database);
}

double read_database(const std::string& file, int expected) {
    const auto start = clock_type::now();
    sqlite3* database = nullptr;
    check(sqlite3_open(file.c_str(), &database), database);
    sqlite3_stmt* select = nullptr;
    check(sqlite3_prepare_v2(database, "select * from catalog", -1, &select, nullptr), database);
    int seen = 0;
    std::size_t bytes = 0;
    while (sqlite3_step(select) == SQLITE_ROW) {
        ++seen;
        for (int column = 0; column < 3; ++column) {
            sqlite3_column_text(select, column);
            bytes += static_cast<std::size_t>(sqlite3_column_bytes(select, column));
        }
        for (int column = 3; column < 15; ++column)
            bytes += static_cast<std::size_t>(sqlite3_column_int(select, column));
    }
    sqlite3_finalize(select);
    sqlite3_close(database);
    if (seen != expected || !bytes)
        die("the database cannot be read");
    return std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
}

void print_list(const char* name, const std::vector<double>& values, const char* end) {
    std::printf("\"%s\": [", name);
    for (std::size_t i = 0; i < values.size(); ++i)
        std::printf("%s%.3f", i ? ", " : "", values[i]);
    std::printf("]%s", end);
}

} // namespace

int main(int count, char** texts) {
    if (count != 4)
        die("usage: catalog_bench EMPTY-DIRECTORY ENTRIES ROUNDS");
    const std::string directory = texts[1];
    const int entries = std::atoi(texts[2]), rounds = std::atoi(texts[3]);
    km::set_configuration_location(km::pathname(directory.c_str()));
    const auto rows = make_rows(entries);
    const std::string catalog = directory + "/packages.pht", database = directory + "/rows.db";
    write_catalog(catalog, rows);
    write_database(database, rows);
    std::vector<double> ours, theirs;
    for (int i = 0; i < rounds; ++i) {
        if (i % 2)
            theirs.push_back(read_database(database, entries));
        ours.push_back(read_catalog(catalog, entries));
        if (i % 2 == 0)
            theirs.push_back(read_database(database, entries));
    }
    std::printf("{");
    print_list("catalog_ms", ours, ", ");
    print_list("sqlite_ms", theirs, "}\n");
    return 0;
}
