// base/log: log file of limited size with one backup
//
// A text file that says in lines what a program did, apart from the trace. When it has grown above
// its limit it becomes the backup, the same name ending in ".bk", and a new one begins; a line is
// one write at the end of the file, so that several processes may share it: none rolls over what
// another rolled over already, and no line is lost. The last lines stay in memory, too, in a ring.
// Logging never fails its caller: five failures in a row switch a handle's file off. Nothing here
// is flushed to the disk. A handle belongs to one thread; its memory is of the global pool, so it
// ends before mg_cleanup(). The page of the format: docs/formats/log-file.md.
#pragma once

namespace km {

constexpr long log_smallest = 10240;   // limits outside are moved to the nearest of these
constexpr long log_largest = 10240000; // bytes
constexpr long log_ring_size = 8192;   // bytes of a ring unless LogQueueAlloc() says otherwise
constexpr int log_most_failures = 5;

// Keys of lines that are no messages.
enum log_key : long {
    log_text_alone = -2, // the text and nothing else
    log_plain = -3       // time, name, text
};

struct LogAllocStruct {
    int threshold;   // the highest level that is written
    int file_output; // 1: lines go to the file
    long max_size;   // bytes
    int to_stdout;   // 1: lines go to standard output
    int file;        // descriptor, -1 between writes
    char* app_name;  // null: none
    char* file_name;
    char* ring;             // null: no ring
    char* ring_at;          // where the next byte goes
    unsigned long ring_all; // bytes ever written to the ring
    char* ring_text;        // the ring as LogQGetBuffer() gives it
    long ring_size;
    int failures; // in a row
    int torn;     // 1: what stands last in the file is the beginning of a line
};

// Opens the log of the name once, making it (mode 0666 less the process's mask) if it is missing,
// and closes it. A handle, the caller's until LogDeinit(), or null with words on standard error.
// `threshold`: lines above it are not written. `max_size` in bytes.
LogAllocStruct* LogInit(const char* filespec, const char* appName, int threshold, int to_stdout,
                        long max_size);
// The same with the largest limit. Null `filespec`: "minimrt.log". A log that cannot be opened is
// replaced by its backup name, and then by the pipe whose descriptor number is in the environment
// variable "LOG_PIPE_WRITE" (the descriptor stays the caller's): a log client runs from then on in
// this process, which neither opens nor rolls over files.
LogAllocStruct* LogInitAppend(const char* filespec, const char* description, int threshold,
                              int to_stdout);
// Null is accepted. The default handle is no longer one afterwards.
void LogDeinit(LogAllocStruct* handle);

// One line, if `level` is not above the handle's threshold; a null handle means the default one.
// `format` and what follows are those of a message: positions as %1$s, arguments in their order;
// its translation in `catalog` (null: none) replaces it, and its id goes in front. At most 1023
// bytes of it are kept. With log_text_alone and log_plain `format` is the text as it stands. A line
// feed is added.
void LogMsg(int level, LogAllocStruct* handle, const char* catalog, long key, const char* format,
            ...);
// A title and `size` bytes at `data`, 16 in a line, as offset, hexadecimal and characters.
void LogData(int level, LogAllocStruct* handle, const char* title, const void* data, long size);
// A printf text of at most 1023 bytes, at level 2 to the default handle.
[[gnu::format(printf, 1, 2)]] void LogQ(const char* format, ...);

// Size of the rings of handles that are made from now on; the default handle gets a new, empty ring
// at once. 0: no ring. 1, or 0 for a size below 0 or above the largest log.
int LogQueueAlloc(long size);
long LogQueueGetSize();
// Adds a line to the handle's ring. A line at least as long as the ring is cut to its size and ends
// with a line feed.
void LogQueueWrite(LogAllocStruct* handle, const char* line);
// What the default handle's ring holds, oldest first, without a first line that lost its beginning
// (if its rest has at most 150 bytes). Valid until the next call; "" without a ring.
const char* LogQGetBuffer();

// Makes the open log the backup and opens a new one; a failed renaming empties the log instead, and
// the first line of the new log says which. If no new log can be opened, the handle writes no file
// from then on.
void LogRollOver(LogAllocStruct* handle);

void LogSetDefault(LogAllocStruct* handle);
LogAllocStruct* LogGetDefault();
// The largest limit that a log may have, in bytes.
long LogGetMaxSize();
// Accessors; a null handle means the default one, and without that they do or give nothing.
void LogSetThreshold(LogAllocStruct* handle, int threshold);
int LogGetThreshold(LogAllocStruct* handle);
void LogSetAppName(LogAllocStruct* handle, const char* name);
const char* LogGetAppName(LogAllocStruct* handle);
void LogSetOutputStdout(LogAllocStruct* handle, int on);
int LogGetOutputStdout(LogAllocStruct* handle);
// The open descriptor, -1 between writes.
int LogGetFD(LogAllocStruct* handle);

// Who hears of the troubles of logs ("EX: LogMsg: ..."): null, the usual case, prints them on
// standard error or, where a new log could not be opened, on standard output.
using log_trouble_watcher = void (*)(const char* text);
void LogSetTroubleWatcher(log_trouble_watcher watcher);

// Appends the text to "webpost.dat" in the directory that the environment variable "QEP_DATDIR"
// names. 1, or 0 if the variable is not set or the file cannot be written.
int web_post_append_log(const char* text);

} // namespace km
