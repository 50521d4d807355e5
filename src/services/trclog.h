// trclog: trace levels, tags and lines; function tracer
//
// A line of the trace: "[pid] local-time mark function text". It goes to numbered files
// "<prefix><number>.trc" beside each other, which the counter file "<prefix>.tpc" keeps in turn
// among the processes of one prefix. A trace never fails its caller: a file that cannot be opened
// diverts to standard error. Nor does it change errno: a line may stand between a failure and the
// look at its errno. No lock guards it; one thread traces.
#pragma once

#include "profiler.h"
#include "ustring.h"

#include <cerrno>
#include <cstdarg>

namespace km {

class Hashtable;
class trace_stream;
class trace_style;
class variable_list;

enum trace_level : int {
    trace_off = 0,
    trace_fatal = 1,
    trace_error = 2,
    trace_warning = 3,
    trace_info = 4,
    trace_entry = 5, // entry and exit lines of ordinary functions
    trace_return = 6 // the same of functions that are called very often, and return data
};

class trace {
  public:
    // Reads the settings and opens the first file; `dir` null: the setting product_dir. A process
    // initialises once. Level 0 creates no file.
    static void initialize(const char* name, const char* dir);
    // The same from a list of settings instead of the settings file.
    static void initialize_webui(const char* name, const variable_list& vars);
    static void terminate();

    static int level() { return _level; }
    // 1 if one of the tags in the text (separated by ',' or ';') is enabled.
    static int check_tags(const char* tags);
    // 0 if there is no stream; else the head of a line is ready.
    static int prepare_header(const char* mark, const char* function);
    // Puts the text behind the head, bounded by the buffer.
    [[gnu::format(printf, 1, 2)]] static void prepare_text(const char* format, ...);
    // Writes the line whose head is ready, and takes the next file when this one is full.
    [[gnu::format(printf, 1, 2)]] static void write_trace_text(const char* format, ...);
    static void get_current_time();
    static const char* get_line() { return _line_buffer; }
    // Settings of an outside caller, for the next initialize. `tags` is lent.
    static void set_remote_values(int override_local, int level, unsigned long size, int style,
                                  const char* tags);
    // "System error <n>\n" in a static buffer.
    static const char* system_error_to_string(unsigned n);
    static const char* last_system_error_to_string();
    // The same word on every thread of this platform.
    static unsigned long getThreadID() { return ~0UL; }
    // The style of a number, new and the caller's.
    static trace_style* get_trace_style(int style);
    // Chooses the file to write to, and keeps one number ahead of it free. `exists`: the counter
    // file was there.
    static void get_trace_file(int exists);
    static const char* get_trace_file_name() { return _tfile; }

  private:
    friend class trace_settings;
    static constexpr int name_size = 1024;

    static int _level;
    static unsigned long _trace_size;
    static trace_style* _trace_style;
    static Hashtable* _trace_tags;
    static trace_stream* _stream[2];
    static int _curr_stream;
    static int _is_changing_phase;
    static int _curr_file_num;
    static int _tpc_file;
    static long _process_pid;
    static unsigned long _init_thread;
    static char _line_buffer[name_size];
    static char _tprefix[name_size];
    static char _tfile[name_size];
    static int _remote_settings_override_local;
    static int _remote_level;
    static unsigned long _remote_trace_size;
    static int _remote_trace_style;
    static const char* _remote_trace_tags;
};

// Gives errno back as it was.
class errno_keeper {
  public:
    errno_keeper() : kept_(errno) {}
    ~errno_keeper() { errno = kept_; }
    errno_keeper(const errno_keeper&) = delete;
    errno_keeper& operator=(const errno_keeper&) = delete;

  private:
    int kept_;
};

// Mark of a level: " [F] " and so on.
const char* trace_mark(int level);

// Stands at the head of a traced function: writes the entry line now and the exit line at its end.
class func_tracer {
  public:
    explicit func_tracer(const char* name, int at_level = trace_entry);
    virtual ~func_tracer();
    func_tracer(const func_tracer&) = delete;
    func_tracer& operator=(const func_tracer&) = delete;

  private:
    const char* name_;
    int entered_ = 0;
};

// The profiler's hook; does nothing where there is no profiler.
class q_entrypoint {
  public:
    explicit q_entrypoint(const char* name);
    explicit q_entrypoint(const ustring& name);
    ~q_entrypoint();
    q_entrypoint(const q_entrypoint&) = delete;
    q_entrypoint& operator=(const q_entrypoint&) = delete;

  private:
    char* name_ = nullptr;
};

// Name that the lines of a function carry; KM_TRACE_FUNCTION hides it with the function's own.
inline constexpr const char* km_function_name = "";

} // namespace km

// Heads a function of interest. The second form is for functions that are called very often.
#define KM_TRACE_FUNCTION_AT(name, at)                                                             \
    [[maybe_unused]] const char* const km_function_name = name;                                    \
    ::km::func_tracer km_func_tracer(km_function_name, at);                                        \
    ::km::q_entrypoint km_entrypoint(km_function_name)
#define KM_TRACE_FUNCTION(name) KM_TRACE_FUNCTION_AT(name, ::km::trace_entry)
#define KM_TRACE_FUNCTION_OFTEN(name) KM_TRACE_FUNCTION_AT(name, ::km::trace_return)

// One line; its arguments are evaluated only if the line will be written.
#define KM_TRACE(at, tag, ...)                                                                     \
    do {                                                                                           \
        if (::km::trace::level() >= static_cast<int>(at) && ::km::trace::check_tags(tag) &&        \
            ::km::trace::prepare_header(::km::trace_mark(at), km_function_name))                   \
            ::km::trace::write_trace_text(__VA_ARGS__);                                            \
    } while (0)
