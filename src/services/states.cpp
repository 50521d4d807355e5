// states: record of the finished steps of a long operation
// format: docs/formats/states.md
// invariant: the file is opened and changed only while the semaphore is held
#include "states.h"

#include "base_configuration.h"
#include "file.h"
#include "trclog.h"
#include "ustring.h"

#include <cstdio>

namespace km {

namespace {

ustring env_key(const ustring& name) { return ustring(u"__env_") + name; }

} // namespace

const pathname& states::get_states_dir() {
    static const pathname dir =
        pathname(base_configuration().get_var(u"working_dir")) + ustring(u"states");
    if (!file(dir).exists())
        file(dir).mk_tree();
    return dir;
}

states::states(const ustring& name)
    : path_(get_states_dir() + name), lock_(std::make_unique<semaphore>(path_, 1)) {}
states::states(const pathname& name) : states(name.get_text()) {}
states::states(const char* name) : states(ustring(name)) {}

states::~states() {
    static constexpr const char* km_function_name = "states::~states";
    if (!close())
        KM_TRACE(trace_error, "common", "error closing hashtable");
}

int states::exists() { return file(path_).exists(); }

// Behind the lock: the file itself.
int states::opened(int create) {
    static constexpr const char* km_function_name = "states::open";
    if (!create && !exists()) {
        KM_TRACE(trace_info, "common", "file not existing");
        return lock_->signal() ? no_file : error;
    }
    // A failure to mend shows again when the table is opened.
    Persistent_Hashtable::recover(path_);
    table_ = std::make_unique<Persistent_Hashtable>(path_, 0, 0, nullptr);
    return success;
}

int states::open(int create, const int timeout) {
    KM_TRACE_FUNCTION("states::open");
    if (table_) {
        KM_TRACE(trace_error, "common", "open called on already opened states");
        return error;
    }
    switch (lock_->wait2(timeout)) {
    case semaphore::acquired:
        return opened(create);
    case semaphore::timed_out:
        KM_TRACE(trace_warning, "common", "timeout locking semaphore");
        return locked;
    case semaphore::failed:
        KM_TRACE(trace_error, "common", "error locking semaphore");
        return error;
    default:
        KM_TRACE(trace_error, "common", "unexpected error locking semaphore");
        return error;
    }
}

int states::tryopen(int create) {
    KM_TRACE_FUNCTION("states::tryopen");
    if (table_) {
        KM_TRACE(trace_error, "common", "open called on already opened states");
        return error;
    }
    const int taken = lock_->trylock();
    if (taken == semaphore::acquired)
        return opened(create);
    if (taken == semaphore::failed) {
        KM_TRACE(trace_error, "common", "error locking semaphore");
        return error;
    }
    KM_TRACE(trace_info, "common", " exiting as locked ... ");
    return locked;
}

int states::current_operation(const ustring& op) {
    KM_TRACE_FUNCTION("states::current_operation");
    KM_TRACE(trace_info, "common", "op=%s", op.mbcs_str());
    if (table_ && table_->get(op))
        return 0;
    KM_TRACE(trace_info, "common", "op still to be done");
    if (current_.length())
        KM_TRACE(trace_warning, "common", "previous operation not committed");
    current_ = op;
    return 1;
}

int states::current_operation(const char* op) { return current_operation(ustring(op)); }

int states::operation_exists(const ustring& op) {
    KM_TRACE_FUNCTION("states::operation_exists");
    if (table_ && table_->get(op)) {
        KM_TRACE(trace_info, "common", "op '%s' already done", op.mbcs_str());
        return 1;
    }
    KM_TRACE(trace_info, "common", "op '%s' still to be done", op.mbcs_str());
    return 0;
}

int states::operation_exists(const char* op) { return operation_exists(ustring(op)); }

int states::commit() {
    KM_TRACE_FUNCTION("states::commit");
    const ustring done = current_;
    rollback();
    if (!table_)
        return 0;
    if (table_->get(done))
        return 1;
    auto key = std::make_unique<ustring>(done);
    auto value = std::make_unique<ustring>();
    if (!table_->put(key.get(), value.get()))
        return 0;
    key.release();
    value.release();
    return 1;
}

void states::rollback() { current_ = ustring(); }

int states::close() {
    KM_TRACE_FUNCTION("states::close");
    rollback();
    table_.reset();
    if (lock_->signal())
        return 1;
    KM_TRACE(trace_error, "common", "error unlocking sem");
    return 0;
}

int states::close_and_remove() {
    KM_TRACE_FUNCTION("states::close_and_remove");
    const bool was_open = table_ != nullptr;
    int done = 1;
    rollback();
    table_.reset();
    if (!file(path_).remove(0)) {
        KM_TRACE(trace_error, "common", "error removing hashtable");
        done = 0;
    }
    // Whatever became of the file, the operation is nobody's now.
    if (was_open && !lock_->signal()) {
        KM_TRACE(trace_error, "common", "error unlocking sem");
        done = 0;
    }
    return done;
}

int states::getenv(const ustring& name, ustring& value) {
    const ustring key = env_key(name);
    const auto* found = table_ ? table_->get_as<ustring>(key) : nullptr;
    if (!found)
        return 0;
    value = *found;
    return 1;
}

int states::setenv(const ustring& name, const ustring& value) {
    return table_ && table_->update(new ustring(env_key(name)), new ustring(value));
}

int states::setenv(const ustring& name, const char* value) { return setenv(name, ustring(value)); }

namespace {

// Steps numbered first to last-1: each must be still to be done (or not), and those that are, are
// recorded.
bool steps_are(states& record, int first, int last, int to_be_done) {
    for (int i = first; i < last; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "dino%d", i);
        if (record.current_operation(name) != to_be_done || (to_be_done && !record.commit()))
            return false;
    }
    return true;
}

} // namespace

int states::test() {
    int number = 0, failed = 0;
    const auto expect = [&](bool as_told) {
        ++number;
        if (as_told)
            return;
        failed = 1;
        std::fprintf(stdout, "(%d) %s", number,
                     "errors have been found: please report the problem\n");
    };
    states record("test");
    std::fputs("testing...\n", stdout);
    expect(record.open(0, -1) == no_file);
    expect(record.open(1, -1) == success);
    expect(record.close());
    expect(record.tryopen(1) == success);
    expect(steps_are(record, 0, 50, 1));
    expect(states("test").tryopen(1) == locked);
    expect(steps_are(record, 0, 50, 0));
    expect(steps_are(record, 50, 100, 1));
    expect(record.tryopen(1) == error);
    const ustring key("key"), first("value"), second("another value");
    ustring value;
    expect(!record.getenv(key, value));
    record.setenv(key, first);
    expect(record.getenv(key, value));
    expect(value == first);
    record.setenv(key, second);
    const bool found = record.getenv(key, value);
    expect(found);
    expect(value == second);
    expect(record.close_and_remove());
    expect(!record.exists());
    std::fputs("... done\n", stdout);
    return !failed;
}

} // namespace km
