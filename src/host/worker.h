// worker: the engine runs in a child process, so that its end never ends the command
#pragma once

#include "outcome.h"

#include <functional>
#include <optional>
#include <string>

namespace kmhost {

// How far a long operation is. `total` 0: unknown.
struct progress_report {
    long done = 0;
    long total = 0;
    std::string what;
};

// What became of the stream that a package came from.
struct stream_loss {
    bool can_be_retried = false;
    bool has_changed = false; // another file lies on the server now
    std::string address;
    std::string reason;      // a clause
    long offset = 0;         // bytes of the file that had come
    std::string package;     // "" while it is not known
    bool is_pending = false; // the package waits to be gone on with
    bool goes_back = false;  // and is to be taken back where the file has changed
};

// The worker's end of the line to its parent. Lives in the worker only; every call is one write, so
// that what was told before a crash has arrived.
class worker_line {
  public:
    explicit worker_line(int descriptor) : descriptor_(descriptor) {}
    // Whether a report would reach the parent now: at most about ten a second do, and the last of
    // an operation (done == total). Ask before the report is put together.
    bool is_due(long done, long total) const;
    // Sends the report if it is due.
    void progress(const progress_report& report);
    // The library is about to end the process with `status`, and says why.
    void ending(int status, const std::string& why);
    // The stream ended early. The last word counts.
    void lost(const stream_loss& loss);
    bool has_lost() const { return has_lost_; }
    // Tells the parent something about this run, which worker_end hands out.
    void note(const std::string& text);
    // The run has written a report, which waits to be delivered.
    void reported();
    void result(const outcome& final);

  private:
    void send(const std::string& line);
    int descriptor_;
    long last_progress_ms_ = 0;
    bool has_lost_ = false;
};

using worker_body = std::function<void(worker_line& line, outcome& result)>;
using progress_watcher = std::function<void(const progress_report& report)>;

// How a worker ended without handing over an outcome.
struct worker_end {
    bool ended_early = false;        // true: no outcome came
    int signal = 0;                  // the signal that killed it, 0: none
    int status = 0;                  // its exit status
    std::string why;                 // what the library said before it ended the process
    std::string note;                // the worker's last note, also where an outcome came
    bool reported = false;           // a report was written
    std::optional<stream_loss> loss; // also where an outcome came
};

// From now on SIGTERM and SIGINT reach this process only while it waits for a worker, which is
// asked to stop: what a worker has told is shown, whatever comes.
void hold_ends();

// Runs `body` in a child process and gives its outcome. A child that dies, or that the library
// ends, gives "pending" with exit code 10 and a message that says what happened; `end`, if not
// null, tells how. `watch` may be empty. The caller must have one thread only.
outcome run_worker(const worker_body& body, const progress_watcher& watch,
                   worker_end* end = nullptr);

} // namespace kmhost
