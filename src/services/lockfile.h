// lockfile: lock among processes on a file
#pragma once

#include "file.h"

namespace km {

// A lock among processes, held on a lock file ("<name>.sem") by an open file description lock: it
// goes with the process that holds it (a child that is forked and not exec'ed must close the
// descriptor), so that a file left behind blocks nobody. The holder removes the file at signal().
// After locking, the file tells who holds it: "pid start-seconds command\n"; nothing trusts it.
class semaphore {
  public:
    enum result : int { acquired = 0, timed_out = 1, failed = 2 };

    // By name: the lock file lies in the working directory, which is made if it is missing.
    semaphore(const ustring& name, int flag);
    // By path: the lock file lies beside the path, "<file>.sem", case kept; `name` is the path in
    // lower case.
    semaphore(const pathname& path, int flag);
    ~semaphore();
    semaphore(const semaphore&) = delete;
    semaphore& operator=(const semaphore&) = delete;

    // Waits up to `seconds` (-1: one hour; 0: one try). 0 acquired, also if it is held here
    // already, 1 timed out, 2 failed.
    [[nodiscard]] int wait2(long seconds);
    int trylock() { return wait2(1); }
    // 1, also if it was not held; 0 if the file could not be removed.
    int signal();
    // Whether a process holds the lock, this one included.
    int _IsLocked();
    int is_held() const { return handle_ >= 0; }
    int get_flag() const { return flag_; }
    const ustring& get_name() const { return name_; }
    const pathname& get_lock_file() const { return lock_file_.get_path(); }

  private:
    void prepare(const pathname& lock_file);
    ustring name_;
    file lock_file_;
    int handle_ = -1;
    int flag_;
};

// 0 with the handle set, or an errno with the file closed.
int Lock(file& lock_file, int& handle);
// Removes the lock file and closes the handle; 0, or the errno of the removal.
int UnLock(file& lock_file, int& handle);
// 1 if a process holds the lock; no file means no, a file that cannot be opened means yes.
int IsLocked(file& lock_file);
void SemSleep(long seconds);

} // namespace km
