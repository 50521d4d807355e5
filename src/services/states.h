// states: record of the finished steps of a long operation
//
// A long operation that must survive a restart records which of its steps are done. One small
// table per operation, "<working_dir>/states/<name>"; its semaphore "<name>.sem" is held from
// open() to close(), so that two processes cannot run one operation. The intended order: open();
// for each step current_operation(), the work if the answer is 1, commit(); then close(), or, when
// all is finished, close_and_remove(). A process killed at any moment keeps every step whose
// commit() came back (a power cut may take the last of them); the one it was at is done again. The
// page of the format: docs/formats/states.md.
#pragma once

#include "lockfile.h"
#include "persistent_hashtable.h"

#include <memory>

namespace km {

class states {
  public:
    enum result : int { success = 0, no_file = 1, locked = 2, error = 3 };

    // `name` is the name of the operation: a file below get_states_dir(), case kept. Touches no
    // file but makes the directory.
    explicit states(const pathname& name);
    explicit states(const ustring& name);
    explicit states(const char* name);
    // Closes; a failure is traced.
    virtual ~states();
    states(const states&) = delete;
    states& operator=(const states&) = delete;

    // 1 if the file is there.
    int exists();
    // Takes the operation, waiting up to `timeout` seconds (-1: one hour, the longest wait of a
    // semaphore; 0: one try), and reads what is recorded. success; no_file if there is no file and
    // `create` is 0; locked if another holds it still; error if it is open here already or the lock
    // cannot be had. What a crash left inside a rewriting of the file is mended first. A file that
    // cannot be read gives success all the same, an empty record and a refusal of every change: see
    // get_table_error().
    [[nodiscard]] int open(int create, const int timeout);
    // The same without waiting for the end of a holder (one second at most).
    [[nodiscard]] int tryopen(int create);
    // 1: `op` is still to be done, and is the one that commit() will record; 0: it is recorded. An
    // object that is not open records nothing: 1.
    int current_operation(const ustring& op);
    int current_operation(const char* op);
    // The same question without taking the step up: 1 recorded, 0 not.
    int operation_exists(const ustring& op);
    int operation_exists(const char* op);
    // Records the current operation. 1, also if it was recorded before; 0
    // if it could not be written or nothing is open. No operation is current afterwards. Without a
    // current operation the empty name is recorded.
    int commit();
    // Forgets the current operation.
    void rollback();
    // Gives the operation back. 1, also if nothing was open; 0 if the lock could not be removed.
    int close();
    // The same, and removes the file: the whole operation is done. 0 if the file or the lock could
    // not be removed. Also removes the file of an object that is not open, whoever holds it.
    int close_and_remove();
    // Values that stand beside the steps, under "__env_" and their name. 1 if found; else `value`
    // stays as it was.
    int getenv(const ustring& name, ustring& value);
    // Sets or replaces; 1, or 0 if it could not be written or nothing is open.
    int setenv(const ustring& name, const ustring& value);
    int setenv(const ustring& name, const char* value);

    // What keeps the open file from being read or written (Persistent_Hashtable::error), 0 if
    // nothing or if it is closed.
    int get_table_error() const { return table_ ? table_->get_table_error() : 0; }
    const pathname& get_path() const { return path_; }

    // The directory of all records. The first call decides where; every call makes it if missing.
    static const pathname& get_states_dir();
    // Runs an operation named "test" through all of the above and tells on standard output: 1 if
    // all went well. Leaves no file after a success.
    static int test();

  private:
    int opened(int create);
    pathname path_;
    std::unique_ptr<semaphore> lock_;
    std::unique_ptr<Persistent_Hashtable> table_;
    ustring current_;
};

} // namespace km
