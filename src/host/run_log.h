// run_log: what kmctl did, in the log of the runtime services
#pragma once

#include "outcome.h"

#include <string>

namespace kmhost {

// Lines on one run of a command, in "log/kmctl.log" below the state: that it begins, its errors and
// warnings, how it ended, and a worker that died. Several processes share the file; above a million
// bytes it becomes the backup "kmctl.bk" (docs/formats/log-file.md). A log that cannot be written
// fails nothing and prints nothing: a line of the trace tells of it. Worker and parent may each
// have one for the same run.
class run_log {
  public:
    // `state` is the directory of the state; empty: nothing is written. `what` is the command and
    // what it is about.
    run_log(const std::string& state, const std::string& what);
    ~run_log();
    run_log(const run_log&) = delete;
    run_log& operator=(const run_log&) = delete;

    void begins();
    // `early`: the worker ended without an outcome of its own.
    void ended(const outcome& result, bool early);
    // What went wrong behind that.
    void adds(const message& one);

  private:
    void line(int level, const std::string& text);
    void* log_ = nullptr;
    std::string what_;
};

} // namespace kmhost
