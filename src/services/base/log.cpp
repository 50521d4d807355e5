// base/log: log file of limited size with one backup
// format: docs/formats/log-file.md
// invariants: no failure reaches the caller; whoever renames a log holds its lock, and the name
// stands for it
#include "base/log.h"

#include "base/bind_msg.h"
#include "base/mem.h"
#include "base/spcatalog.h"
#include "base/uxl.h"
#include "durable.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

namespace {

constexpr size_t longest_text = 1023;
constexpr long longest_partial_line = 150;
constexpr unsigned new_file_mode = 0666;
const char usual_name[] = "minimrt.log";

LogAllocStruct* default_handle = nullptr;
long ring_size = log_ring_size;
bool log_client = false; // lines go through the pipe of a log client
log_trouble_watcher trouble_watcher = nullptr;

LogAllocStruct* or_default(LogAllocStruct* handle) { return handle ? handle : default_handle; }

void tell(FILE* to, const std::string& text) {
    if (trouble_watcher)
        trouble_watcher(text.c_str());
    else
        std::fputs(text.c_str(), to);
}

[[noreturn]] void fail(const std::string& what, int error) {
    throw mrt_exception("", 0, what + ": " + std::strerror(error));
}

int open_log(const char* name, int more_flags) {
    const int descriptor =
        ::open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | more_flags,
               new_file_mode);
    if (descriptor < 0)
        fail(name, errno);
    return descriptor;
}

void close_file(LogAllocStruct* handle) {
    if (handle->file >= 0)
        ::close(handle->file);
    handle->file = -1;
}

class open_file {
  public:
    explicit open_file(int descriptor) : descriptor_(descriptor) {}
    ~open_file() { ::close(descriptor_); }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;

  private:
    int descriptor_;
};

// A log client that has gone must not end the process by its broken pipe.
class no_broken_pipe {
  public:
    no_broken_pipe() {
        ::sigemptyset(&pipe_);
        ::sigaddset(&pipe_, SIGPIPE);
        sigset_t waiting;
        ::sigpending(&waiting);
        was_waiting_ = ::sigismember(&waiting, SIGPIPE) == 1;
        ::pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~no_broken_pipe() {
        const int error = errno;
        const timespec at_once{0, 0};
        while (!was_waiting_ && ::sigtimedwait(&pipe_, nullptr, &at_once) < 0 && errno == EINTR) {
        }
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }
    no_broken_pipe(const no_broken_pipe&) = delete;
    no_broken_pipe& operator=(const no_broken_pipe&) = delete;

  private:
    sigset_t pipe_;
    sigset_t before_;
    bool was_waiting_;
};

// One write, so that lines of several processes do not mix. A disk that fills up can take the
// beginning of a line alone: the next one does not stand behind it.
void write_whole(LogAllocStruct* handle, const std::string& line) {
    const no_broken_pipe while_writing;
    const std::string text = (handle->torn ? "\n" : "") + line;
    ssize_t put;
    do
        put = ::write(handle->file, text.data(), text.size());
    while (put < 0 && errno == EINTR);
    if (put > 0)
        handle->torn = text[static_cast<size_t>(put) - 1] != '\n';
    if (put != static_cast<ssize_t>(text.size()))
        fail(handle->file_name, put < 0 ? errno : ENOSPC);
}

// Whether an earlier process left the beginning of a line at the end of the file.
bool ends_torn(const char* name) {
    const int in = ::open(name, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (in < 0)
        return false;
    struct stat about {};
    char last = '\n';
    const bool was_read = ::fstat(in, &about) == 0 && S_ISREG(about.st_mode) && about.st_size > 0 &&
                          ::pread(in, &last, 1, about.st_size - 1) == 1;
    ::close(in);
    return was_read && last != '\n';
}

std::string backup_name(const std::string& name) {
    const auto slash = name.rfind('/');
    const auto dot = name.rfind('.');
    const bool has_extension =
        dot != std::string::npos && (slash == std::string::npos || dot > slash + 1) && dot != 0;
    return name.substr(0, has_extension ? dot : name.size()) + ".bk";
}

bool name_stands_for(const char* name, int descriptor) {
    struct stat by_name {
    }, open{};
    return ::stat(name, &by_name) == 0 && ::fstat(descriptor, &open) == 0 &&
           by_name.st_dev == open.st_dev && by_name.st_ino == open.st_ino;
}

bool is_full(const LogAllocStruct* handle) {
    struct stat open {};
    return ::fstat(handle->file, &open) == 0 && S_ISREG(open.st_mode) &&
           open.st_size > handle->max_size;
}

// First words of a new log.
std::string notice(const LogAllocStruct* handle, const std::string& backup, int rename_error) {
    if (rename_error)
        return "\n-- Failed to create backup. errno=" + std::to_string(rename_error) +
               " Exception: Rename failed --\n\n";
    return "-- Log size has reached limit (" + std::to_string(handle->max_size) +
           ") - The existing log file has been backed up as " + backup + " --\n\n";
}

// The old log stays open, and with it its lock, until the new one has its first words. What was
// renamed needs no truncation, which could take the first line of another writer.
void replace_log(LogAllocStruct* handle) {
    const std::string backup = backup_name(handle->file_name);
    const open_file old(handle->file);
    handle->file = -1;
    const int error = rename_file(handle->file_name, backup.c_str()) ? 0 : errno;
    handle->file = open_log(handle->file_name, error ? O_TRUNC : 0);
    handle->torn = 0;
    write_whole(handle, notice(handle, backup, error));
}

// With `only_full` a log that another writer emptied meanwhile is left alone.
void roll_over(LogAllocStruct* handle, bool only_full) {
    // Another writer that holds the lock is at it: this one line may stand above the limit.
    if (::flock(handle->file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return;
    if (!name_stands_for(handle->file_name, handle->file)) {
        close_file(handle);
        handle->file = open_log(handle->file_name, 0);
        handle->torn = 0;
    } else if (!only_full || is_full(handle)) {
        replace_log(handle);
    }
}

// Without a new log the handle writes no file any more. A new one that cannot be written is a
// failed line like others.
void roll_over_or_stop(LogAllocStruct* handle, bool only_full) {
    try {
        roll_over(handle, only_full);
    } catch (const std::exception& failure) {
        if (handle->file >= 0)
            throw;
        handle->file_output = 0;
        tell(stdout, std::string("Unable to reopen the log file during roll over: ") +
                         failure.what() + "\n");
    }
}

void write_line(LogAllocStruct* handle, const std::string& line) {
    const bool through_client = log_client && handle->file >= 0;
    if (!through_client) {
        handle->file = open_log(handle->file_name, 0);
        if (is_full(handle))
            roll_over_or_stop(handle, true);
    }
    if (handle->file_output)
        write_whole(handle, line);
    LogQueueWrite(handle, line.c_str());
    if (!through_client)
        close_file(handle);
}

void count_failure(LogAllocStruct* handle, const char* why) {
    if (!log_client)
        close_file(handle);
    if (++handle->failures < log_most_failures) {
        tell(stderr, std::string("EX: LogMsg: ") + why + "\n");
        return;
    }
    handle->file_output = 0;
    LogAllocStruct* const usual = default_handle;
    default_handle = handle;
    tell(stderr, std::string("LogQ Trace:\n") + LogQGetBuffer() + "\n");
    default_handle = usual;
    tell(stderr, "Log error limit exceeded.   Shutdown Logfile\n");
}

std::string time_text() {
    char text[64];
    const time_t now = ::time(nullptr);
    tm local{};
    if (!::localtime_r(&now, &local) ||
        std::strftime(text, sizeof text, "%b %d %H:%M:%S", &local) == 0)
        return "";
    return text;
}

std::string head_of(int level, const LogAllocStruct* handle, long key) {
    char field[16] = "  ";
    if (key != log_plain)
        std::snprintf(field, sizeof field, "%2d", level);
    return time_text() + field + " " + (handle->app_name ? handle->app_name : "") +
           (handle->app_name ? " " : "");
}

// At most 1023 bytes, in whole characters.
std::string cut(const char* text) {
    if (std::strlen(text) <= longest_text)
        return text;
    char part[longest_text + 1];
    uxl_strncpy(0, part, text, longest_text);
    part[longest_text] = 0;
    return part;
}

std::string bound_text(const char* catalog, long key, const char* format, va_list arguments) {
    XOpenMessage* message = nullptr;
    vAddMsg(message, catalog, key, format, arguments);
    char* text = znp_msg_bind(message, nullptr, 0);
    nrx_msg_destroy(message);
    const std::string out = cut(text ? text : "");
    std::free(text);
    return out;
}

void put_line(LogAllocStruct* handle, const std::string& line) {
    if (handle->to_stdout) {
        std::fputs((line + "\n").c_str(), stdout);
        std::fflush(stdout);
    }
    if (!handle->file_output)
        return;
    try {
        write_line(handle, line + "\n");
        handle->failures = 0;
    } catch (const std::exception& failure) {
        count_failure(handle, failure.what());
    }
}

void free_ring(LogAllocStruct* handle) {
    mg_free(handle->ring);
    mg_free(handle->ring_text);
    handle->ring = handle->ring_at = handle->ring_text = nullptr;
    handle->ring_all = 0;
    handle->ring_size = 0;
}

void make_ring(LogAllocStruct* handle) {
    if (ring_size == 0)
        return;
    handle->ring = handle->ring_at = static_cast<char*>(mg_malloc(static_cast<size_t>(ring_size)));
    handle->ring_text = static_cast<char*>(mg_malloc(static_cast<size_t>(ring_size) + 1));
    handle->ring_size = ring_size;
}

LogAllocStruct* make_handle(const char* filespec, const char* name, int threshold, int to_stdout,
                            long max_size) {
    auto* handle = static_cast<LogAllocStruct*>(mg_calloc(1, sizeof(LogAllocStruct)));
    handle->file = -1;
    handle->app_name = name && *name ? mg_strdup(name) : nullptr;
    handle->file_name = mg_strdup(filespec);
    handle->max_size = std::clamp(max_size, log_smallest, log_largest);
    handle->to_stdout = to_stdout;
    handle->threshold = threshold;
    handle->file_output = 1;
    make_ring(handle);
    return handle;
}

// Null behind words; a handle whose file could be opened else.
LogAllocStruct* open_handle(const char* filespec, const char* name, int threshold, int to_stdout,
                            long max_size, std::string& why) {
    LogAllocStruct* handle = nullptr;
    try {
        handle = make_handle(filespec, name, threshold, to_stdout, max_size);
        handle->file = open_log(filespec, 0);
        handle->torn = ends_torn(filespec);
        close_file(handle);
        return handle;
    } catch (const std::exception& failure) {
        why = failure.what();
    }
    LogDeinit(handle);
    return nullptr;
}

// The descriptor that LOG_PIPE_WRITE names, for this handle alone; -1 if there is none.
int client_pipe() {
    const char* number = std::getenv("LOG_PIPE_WRITE");
    char* end = nullptr;
    const long descriptor = number && *number ? std::strtol(number, &end, 10) : -1;
    if (descriptor < 0 || descriptor > 0x7FFFFFFF || *end)
        return -1;
    const int access = ::fcntl(static_cast<int>(descriptor), F_GETFL);
    if (access < 0 || (access & O_ACCMODE) == O_RDONLY)
        return -1;
    return ::fcntl(static_cast<int>(descriptor), F_DUPFD_CLOEXEC, 3);
}

LogAllocStruct* open_client(const char* filespec, const char* name, int threshold, int to_stdout) {
    const int pipe = client_pipe();
    if (pipe < 0)
        return nullptr;
    LogAllocStruct* handle = nullptr;
    try {
        handle = make_handle(filespec, name, threshold, to_stdout, log_largest);
    } catch (const std::exception&) {
        ::close(pipe);
        return nullptr;
    }
    handle->file = pipe;
    log_client = true;
    return handle;
}

} // namespace

LogAllocStruct* LogInit(const char* filespec, const char* appName, int threshold, int to_stdout,
                        long max_size) {
    if (!filespec) {
        tell(stderr, "No filespec given. Unable to init log.\n");
        return nullptr;
    }
    if (!appName) {
        tell(stderr, "No application name (appName) given. Unable to init log.\n");
        return nullptr;
    }
    std::string why;
    auto* handle = open_handle(filespec, appName, threshold, to_stdout, max_size, why);
    if (!handle)
        tell(stderr, "EX: LogInit: " + why + "\n");
    return handle;
}

LogAllocStruct* LogInitAppend(const char* filespec, const char* description, int threshold,
                              int to_stdout) {
    const std::string name = filespec ? filespec : usual_name;
    std::string why, why_no_backup;
    auto* handle = open_handle(name.c_str(), description, threshold, to_stdout, log_largest, why);
    if (!handle)
        handle = open_handle(backup_name(name).c_str(), description, threshold, to_stdout,
                             log_largest, why_no_backup);
    if (!handle)
        handle = open_client(name.c_str(), description, threshold, to_stdout);
    if (!handle)
        tell(stderr, "EX: LogInit: " + why + "\n");
    return handle;
}

void LogDeinit(LogAllocStruct* handle) {
    if (!handle)
        return;
    if (handle == default_handle)
        default_handle = nullptr;
    if (log_client && handle->file >= 0)
        log_client = false;
    close_file(handle);
    free_ring(handle);
    mg_free(handle->app_name);
    mg_free(handle->file_name);
    mg_free(handle);
}

void LogMsg(int level, LogAllocStruct* handle, const char* catalog, long key, const char* format,
            ...) {
    handle = or_default(handle);
    if (!handle || level > handle->threshold || !format)
        return;
    const int error = errno;
    std::string line;
    if (key == log_text_alone) {
        line = format;
    } else if (key == log_plain) {
        line = head_of(level, handle, key) + format;
    } else {
        va_list arguments;
        va_start(arguments, format);
        line = head_of(level, handle, key) + bound_text(catalog, key, format, arguments);
        va_end(arguments);
    }
    put_line(handle, line);
    errno = error;
}

namespace {

std::string dump_line(const unsigned char* bytes, long offset, long count) {
    std::string hex, shown;
    char part[96];
    for (long i = 0; i < count; ++i) {
        std::snprintf(part, sizeof part, " %02x", static_cast<unsigned>(bytes[i]));
        hex += part;
        shown += bytes[i] >= 0x20 && bytes[i] <= 0x7E ? static_cast<char>(bytes[i]) : '.';
    }
    std::snprintf(part, sizeof part, "%08lx:%-48s %s", static_cast<unsigned long>(offset),
                  hex.c_str(), shown.c_str());
    return part;
}

} // namespace

void LogData(int level, LogAllocStruct* handle, const char* title, const void* data, long size) {
    handle = or_default(handle);
    if (!handle || level > handle->threshold)
        return;
    constexpr long in_a_line = 16;
    const auto* bytes = static_cast<const unsigned char*>(data);
    const long count = bytes && size > 0 ? size : 0;
    char head[96];
    std::snprintf(head, sizeof head, "-START DATA-: %ld  (%#lx) bytes-", count,
                  static_cast<unsigned long>(count));
    LogMsg(level, handle, nullptr, log_plain, title ? title : "");
    LogMsg(level, handle, nullptr, log_text_alone, head);
    for (long at = 0; at < count; at += in_a_line)
        LogMsg(level, handle, nullptr, log_text_alone,
               dump_line(bytes + at, at, std::min(in_a_line, count - at)).c_str());
}

void LogQ(const char* format, ...) {
    char text[longest_text + 1];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length >= 0)
        LogMsg(2, nullptr, nullptr, log_plain, text);
}

int LogQueueAlloc(long size) {
    if (size < 0 || size > log_largest)
        return 0;
    ring_size = size;
    if (default_handle) {
        free_ring(default_handle);
        make_ring(default_handle);
    }
    return 1;
}

long LogQueueGetSize() { return ring_size; }

void LogQueueWrite(LogAllocStruct* handle, const char* line) {
    handle = or_default(handle);
    if (!handle || !handle->ring || !line)
        return;
    const auto size = static_cast<size_t>(handle->ring_size);
    std::string text(line, ::strnlen(line, size));
    if (text.size() == size)
        text.back() = '\n';
    const size_t at = static_cast<size_t>(handle->ring_at - handle->ring);
    const size_t first = std::min(text.size(), size - at);
    std::memcpy(handle->ring_at, text.data(), first);
    std::memcpy(handle->ring, text.data() + first, text.size() - first);
    handle->ring_at = handle->ring + (at + text.size()) % size;
    handle->ring_all += text.size();
}

const char* LogQGetBuffer() {
    LogAllocStruct* handle = default_handle;
    if (!handle || !handle->ring)
        return "";
    const auto size = static_cast<size_t>(handle->ring_size);
    const size_t at = static_cast<size_t>(handle->ring_at - handle->ring);
    if (handle->ring_all <= size) {
        std::memcpy(handle->ring_text, handle->ring, handle->ring_all);
        handle->ring_text[handle->ring_all] = 0;
        return handle->ring_text;
    }
    std::memcpy(handle->ring_text, handle->ring_at, size - at);
    std::memcpy(handle->ring_text + (size - at), handle->ring, at);
    handle->ring_text[size] = 0;
    const char* end = std::strchr(handle->ring_text, '\n');
    const bool is_partial = end && end[1] && end - handle->ring_text < longest_partial_line;
    return is_partial ? end + 1 : handle->ring_text;
}

void LogRollOver(LogAllocStruct* handle) {
    handle = or_default(handle);
    if (!handle || log_client || handle->file < 0)
        return;
    try {
        roll_over_or_stop(handle, false);
    } catch (const std::exception& failure) {
        count_failure(handle, failure.what());
    }
}

void LogSetDefault(LogAllocStruct* handle) { default_handle = handle; }
LogAllocStruct* LogGetDefault() { return default_handle; }
long LogGetMaxSize() { return log_largest; }

void LogSetThreshold(LogAllocStruct* handle, int threshold) {
    if ((handle = or_default(handle)))
        handle->threshold = threshold;
}

int LogGetThreshold(LogAllocStruct* handle) {
    handle = or_default(handle);
    return handle ? handle->threshold : 0;
}

void LogSetAppName(LogAllocStruct* handle, const char* name) {
    if (!(handle = or_default(handle)))
        return;
    char* const old = handle->app_name;
    handle->app_name = name && *name ? mg_strdup(name) : nullptr;
    mg_free(old);
}

const char* LogGetAppName(LogAllocStruct* handle) {
    handle = or_default(handle);
    return handle ? handle->app_name : nullptr;
}

void LogSetOutputStdout(LogAllocStruct* handle, int on) {
    if ((handle = or_default(handle)))
        handle->to_stdout = on;
}

int LogGetOutputStdout(LogAllocStruct* handle) {
    handle = or_default(handle);
    return handle ? handle->to_stdout : 0;
}

int LogGetFD(LogAllocStruct* handle) {
    handle = or_default(handle);
    return handle ? handle->file : -1;
}

void LogSetTroubleWatcher(log_trouble_watcher watcher) { trouble_watcher = watcher; }

int web_post_append_log(const char* text) {
    const char* directory = std::getenv("QEP_DATDIR");
    if (!directory || !text)
        return 0;
    const std::string path = std::string(directory) + "/webpost.dat";
    const int out = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, new_file_mode);
    if (out < 0)
        return 0;
    const size_t size = std::strlen(text);
    const int done = ::write(out, text, size) == static_cast<ssize_t>(size);
    ::close(out);
    return done;
}

} // namespace km
