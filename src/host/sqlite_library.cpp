// sqlite_library: libsqlite3, loaded when the first database is opened
// no format
// invariant: either every function is there or none is used
#include "sqlite_library.h"

#include "lazy_library.h"

namespace kmhost {

namespace {
std::string load(sqlite_library& all) {
    km::lazy_library from("libsqlite3.so.0");
    from.find("sqlite3_open_v2", all.open_v2);
    from.find("sqlite3_close", all.close);
    from.find("sqlite3_extended_result_codes", all.extended_result_codes);
    from.find("sqlite3_busy_timeout", all.busy_timeout);
    from.find("sqlite3_exec", all.exec);
    from.find("sqlite3_prepare_v2", all.prepare_v2);
    from.find("sqlite3_step", all.step);
    from.find("sqlite3_column_int", all.column_int);
    from.find("sqlite3_bind_text64", all.bind_text64);
    from.find("sqlite3_bind_int64", all.bind_int64);
    from.find("sqlite3_finalize", all.finalize);
    from.find("sqlite3_errmsg", all.errmsg);
    return from.why();
}
} // namespace

const sqlite_library* sqlite_library::get(std::string& why) {
    static sqlite_library all{};
    static const std::string fault = load(all);
    why = fault;
    return fault.empty() ? &all : nullptr;
}

} // namespace kmhost
