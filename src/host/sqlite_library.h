// sqlite_library: libsqlite3, loaded when the first database is opened
#pragma once

#include <sqlite3.h>
#include <string>

namespace kmhost {

struct sqlite_library {
    decltype(&::sqlite3_open_v2) open_v2;
    decltype(&::sqlite3_close) close;
    decltype(&::sqlite3_extended_result_codes) extended_result_codes;
    decltype(&::sqlite3_busy_timeout) busy_timeout;
    decltype(&::sqlite3_exec) exec;
    decltype(&::sqlite3_prepare_v2) prepare_v2;
    decltype(&::sqlite3_step) step;
    decltype(&::sqlite3_column_int) column_int;
    decltype(&::sqlite3_bind_text64) bind_text64;
    decltype(&::sqlite3_bind_int64) bind_int64;
    decltype(&::sqlite3_finalize) finalize;
    decltype(&::sqlite3_errmsg) errmsg;

    // The one of this process. Null: `why` says what is missing.
    static const sqlite_library* get(std::string& why);
};

} // namespace kmhost
