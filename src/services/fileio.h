// fileio: an open descriptor with a sticky error state
#pragma once

#include "pathname.h"

namespace km {

// An open file. After a failure all operations but close and tell do nothing and return 0; the
// owner looks at the state once at the end. The handle owns its descriptor and closes any above 2
// at its end. Results: 1, or 0 with the state and the system error (errno) set and a trace line.
class file_handle {
  public:
    enum state : short {
        good = 0,
        seek_failed = 1,
        open_failed = 2,
        close_failed = 3,
        read_failed = 4,
        write_failed = 5,
        null_buffer = 7
    };

    file_handle() = default;
    // Takes an open descriptor over.
    file_handle(int descriptor, int flags);
    // Opens for reading and writing, making the file (0600) if it is not there.
    explicit file_handle(const pathname& path);
    file_handle(const pathname& path, int flags);
    // A duplicate of the descriptor.
    file_handle(const file_handle& other);
    file_handle& operator=(const file_handle& other);
    virtual ~file_handle();

    // On an open handle nothing happens. 1 also when opening failed: test the state. 0 only if the
    // state was not good before.
    int open(const pathname& path, int flags);
    int open(const ustring& path, int flags) { return open(pathname(path), flags); }
    int open(const pathname& path) { return default_open(path); }
    int open(const ustring& path) { return default_open(pathname(path)); }
    int default_open(const pathname& path);
    int close();

    int start();
    int end();
    int move_from_start(long offset);
    int move_from_end(long offset);
    int move_from_current(long offset);
    // Current position, -1 with state 1.
    long tell();
    // Up to n bytes; a short count (get_bytes_read) is no failure.
    int read(char* buffer, unsigned long n);
    int write(const char* buffer, unsigned long n);
    int chsize(long size);
    // Bytes of the file, by name when closed; -1 with state 4, 0 if the state was not good.
    long filelength();
    // Makes the content last; nothing where synchronising is off. A pipe or terminal counts as
    // done.
    int flush();
    int eof();

    int get_state() const { return state_; }
    int get_system_error() const { return system_error_; }
    unsigned long get_bytes_read() const { return bytes_read_; }
    unsigned long get_bytes_written() const { return bytes_written_; }
    int get_descriptor() const { return descriptor_; }
    const pathname& get_path() const { return path_; }
    int get_sync() const { return synchronise_; }
    void set_sync(int synchronise) { synchronise_ = synchronise; }
    int is_open() const { return descriptor_ >= 0; }

  private:
    int fail(state to, const char* what);
    void latch(state to, int error);
    void take(const file_handle& other, const char* what);
    int seek(long offset, int whence);

    short state_ = good;
    int descriptor_ = -1;
    pathname path_;
    short system_error_ = 0;
    unsigned long bytes_read_ = 0;
    unsigned long bytes_written_ = 0;
    int flags_ = -1;
    int synchronise_ = 1;
};

} // namespace km
