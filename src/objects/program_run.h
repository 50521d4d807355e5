// program_run: one run of a program, watched
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace km {

struct program_request {
    std::string path; // absolute, in the target root
    std::vector<std::string> arguments;
    std::vector<std::string> environment; // NAME=VALUE, a later one wins
    std::string working_directory = "/";
    long time_limit = -1; // seconds, -1 none
    bool changes_user = false;
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;
};

struct program_outcome {
    enum class end { exited, killed, timed_out, not_started };
    end how = end::not_started;
    int code = 0;           // exit code, number of the signal, or errno
    std::string step;       // what failed before it started: "change the root to" ...
    std::string output;     // standard output and standard error as they came, the last 64 KiB
    unsigned long lost = 0; // bytes in front of those
};

// Splits a text at blanks, with the quoting of a shell: nothing is special in '...', a backslash
// quotes '"' and itself in "...", any character outside. False: a quote is not closed.
bool split_words(const std::string& text, std::vector<std::string>& words);

// Starts the program in a session of its own and waits for its end. What it leaves running in the
// background is not waited for. A program whose starter dies gets SIGTERM.
program_outcome run_program(const program_request& request);

} // namespace km
