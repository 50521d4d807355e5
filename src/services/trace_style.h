// trace_style: how trace files are numbered and rotated
#pragma once

#include "ustring.h"

namespace km {

class trace_style {
  public:
    static constexpr int name_size = 125; // bytes that `name` points to
    static constexpr int next_size = 25;  // bytes that `next` points to

    virtual ~trace_style() = default;
    // The number of the file to use, from the number in the counter file. `name` takes what stands
    // behind the prefix of the file's name, `next` what the counter file is to hold; both buffers
    // are the caller's. With `advance` the file after this one is meant.
    virtual int get_next_file(int file_num, char** name, char** next, int advance) = 0;
};

// A ring of files 1 to `last`.
class default_trace_style : public trace_style {
  public:
    explicit default_trace_style(long last = 9) : last_(last) {}
    int get_next_file(int file_num, char** name, char** next, int advance) override;

  protected:
    long last_;
};

class unlimited_trace_style : public default_trace_style {
  public:
    unlimited_trace_style() : default_trace_style(2147483647L) {}
};

// As many files as the number of the style.
class enlarged_trace_style : public default_trace_style {
  public:
    explicit enlarged_trace_style(int style) : default_trace_style(style) {}
};

// Stays in the decade of the number it finds.
class ten_trace_style : public trace_style {
  public:
    int get_next_file(int file_num, char** name, char** next, int advance) override;
};

// A ring for each process: the name holds the process id.
class process_trace_style : public default_trace_style {
  public:
    explicit process_trace_style(long process) : process_(process) {}
    int get_next_file(int file_num, char** name, char** next, int advance) override;

  private:
    long process_;
};

// Starts again at 1 whenever the time in the given format changes.
class time_trace_style : public trace_style {
  public:
    explicit time_trace_style(const char* format) : format_(format) {}
    int get_next_file(int file_num, char** name, char** next, int advance) override;

  private:
    ustring last_stamp_;
    ustring format_;
};

} // namespace km
