// worker: the engine runs in a child process, so that its end never ends the command
// format: one line of JSON per event on a pipe, private to this file
// invariant: without an outcome from the child the result is never a success
#include "worker.h"

#include "base/uxl.h"
#include "json_text.h"
#include "stop_request.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace kmhost {

using nlohmann::json;

namespace {

// Asked behind each command; its steps are of some milliseconds.
long now_ms() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

constexpr long progress_interval_ms = 100;

// What the parent has heard so far.
struct heard {
    outcome result;
    bool has_result = false;
    worker_end end;
};

stream_loss loss_of(const json& event) {
    return {event.value("retry", false),   event.value("changed", false),
            event.value("address", ""),    event.value("reason", ""),
            event.value("offset", 0L),     event.value("package", ""),
            event.value("pending", false), event.value("back", false)};
}

// In front of the line with the result; the others are events, JSON objects.
constexpr char result_mark = '=';

void hear(const std::string& line, heard& so_far, const progress_watcher& watch) {
    if (line.starts_with(result_mark)) {
        so_far.has_result = from_wire(line.substr(1), so_far.result);
        return;
    }
    json event = json_of(line);
    if (!event.is_object())
        return;
    const std::string kind = event.value("event", "");
    if (kind == "progress" && watch)
        watch({event.value("done", 0L), event.value("total", 0L), event.value("what", "")});
    else if (kind == "ending")
        so_far.end.why = event.value("why", "");
    else if (kind == "lost")
        so_far.end.loss = loss_of(event);
    else if (kind == "note")
        so_far.end.note = event.value("text", "");
    else if (kind == "reported")
        so_far.end.reported = true;
}

void listen(int descriptor, heard& so_far, const progress_watcher& watch) {
    std::string pending;
    char block[65536];
    for (;;) {
        ssize_t got = ::read(descriptor, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return;
        size_t start = 0, from = pending.size();
        pending.append(block, static_cast<size_t>(got));
        for (size_t end; (end = pending.find('\n', from)) != std::string::npos;
             start = from = end + 1)
            hear(pending.substr(start, end - start), so_far, watch);
        pending.erase(0, start);
    }
}

int wait_for(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return 0x7f00;
    return status;
}

outcome early_end(const worker_end& end) {
    outcome result;
    std::string text = "The operation ended before it was complete";
    if (end.signal)
        text += std::string(" (signal ") + std::to_string(end.signal) + ", " +
                ::strsignal(end.signal) + ")";
    else if (!end.why.empty())
        text += ": " + end.why;
    else
        text += " (status " + std::to_string(end.status) + ")";
    text += ". What stands on disk is consistent; run the same command again.";
    result.fail(exit_busy, "interrupted", text, "pending");
    return result;
}

void set_handler(int signal, void (*handler)(int), int flags) {
    struct sigaction what {};
    what.sa_handler = handler;
    what.sa_flags = flags;
    ::sigaction(signal, &what, nullptr);
}

sigset_t end_signals() {
    sigset_t all;
    ::sigemptyset(&all);
    ::sigaddset(&all, SIGTERM);
    ::sigaddset(&all, SIGINT);
    return all;
}

void let_ends(int how) {
    const sigset_t all = end_signals();
    ::sigprocmask(how, &all, nullptr);
}

void stop_worker(int) { km::request_stop(); }

// The first asks to stop at the next command; a second one of its kind ends the process at once. A
// closed terminal changes nothing.
void prepare_worker_signals() {
    set_handler(SIGINT, stop_worker, SA_RESTART | static_cast<int>(SA_RESETHAND));
    set_handler(SIGTERM, stop_worker, SA_RESTART | static_cast<int>(SA_RESETHAND));
    set_handler(SIGHUP, SIG_IGN, 0);
    set_handler(SIGPIPE, SIG_IGN, 0);
    let_ends(SIG_UNBLOCK);
}

volatile pid_t worker_process = 0;
void pass_on(int signal) {
    if (worker_process > 0)
        ::kill(worker_process, signal);
}

// Before there was a worker that the terminal would have interrupted, too.
bool is_interrupted() {
    sigset_t pending;
    return ::sigpending(&pending) == 0 && ::sigismember(&pending, SIGINT) == 1;
}

// While a worker runs, this process waits for it whatever comes. An interrupt from the terminal
// reaches both; a request to end for this process alone is passed on. What comes before there is a
// worker that takes it waits so long.
class waiting_signals {
  public:
    waiting_signals() {
        const sigset_t all = end_signals();
        ::sigprocmask(SIG_BLOCK, &all, &mask_);
        was_interrupted_ = is_interrupted(); // to ignore the signal throws it away
        for (const int signal : {SIGINT, SIGTERM, SIGHUP})
            ::sigaction(signal, nullptr, &before_[signal]);
        set_handler(SIGINT, SIG_IGN, 0);
        set_handler(SIGHUP, SIG_IGN, 0);
        set_handler(SIGTERM, pass_on, SA_RESTART);
    }
    void begin(pid_t worker) {
        worker_process = worker;
        if (was_interrupted_)
            pass_on(SIGINT);
        let_ends(SIG_UNBLOCK);
    }
    ~waiting_signals() {
        let_ends(SIG_BLOCK);
        for (const auto& [signal, action] : before_)
            ::sigaction(signal, &action, nullptr);
        worker_process = 0;
        ::sigprocmask(SIG_SETMASK, &mask_, nullptr);
    }
    waiting_signals(const waiting_signals&) = delete;
    waiting_signals& operator=(const waiting_signals&) = delete;

  private:
    std::map<int, struct sigaction> before_;
    sigset_t mask_;
    bool was_interrupted_ = false;
};

[[noreturn]] void be_worker(int descriptor, const worker_body& body) {
    prepare_worker_signals();
    worker_line line(descriptor);
    outcome result;
    body(line, result);
    line.result(result);
    // Exit handlers and static destructors belong to the parent's run of the program.
    std::fflush(nullptr);
    ::_exit(0);
}

} // namespace

void worker_line::send(const std::string& line) {
    const std::string whole = line + "\n";
    size_t at = 0;
    while (at < whole.size()) {
        ssize_t put = ::write(descriptor_, whole.data() + at, whole.size() - at);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return; // the parent is gone; the operation itself goes on to its good end
        at += static_cast<size_t>(put);
    }
}

// A cleanup walks the tree again, behind the last command: its reports are ordinary ones.
bool worker_line::is_due(long done, long total) const {
    return (total > 0 && done == total) || now_ms() - last_progress_ms_ >= progress_interval_ms;
}

void worker_line::progress(const progress_report& report) {
    if (!is_due(report.done, report.total))
        return;
    last_progress_ms_ = now_ms();
    json event = {{"event", "progress"},
                  {"done", report.done},
                  {"total", report.total},
                  {"what", report.what}};
    send(json_text(event));
}

void worker_line::ending(int status, const std::string& why) {
    json event = {{"event", "ending"}, {"status", status}, {"why", why}};
    send(json_text(event));
}

void worker_line::lost(const stream_loss& loss) {
    has_lost_ = true;
    json event = {
        {"event", "lost"},         {"retry", loss.can_be_retried}, {"changed", loss.has_changed},
        {"address", loss.address}, {"reason", loss.reason},        {"offset", loss.offset},
        {"package", loss.package}, {"pending", loss.is_pending},   {"back", loss.goes_back}};
    send(json_text(event));
}

void worker_line::note(const std::string& text) {
    json event = {{"event", "note"}, {"text", text}};
    send(json_text(event));
}

void worker_line::reported() { send(R"({"event":"reported"})"); }

void worker_line::result(const outcome& final) {
    send(result_mark + to_wire(final)); // no event: a long list would be coded twice
}

void hold_ends() { let_ends(SIG_BLOCK); }

outcome run_worker(const worker_body& body, const progress_watcher& watch, worker_end* end) {
    int ends[2];
    heard so_far;
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        so_far.result.fail(exit_failed, "pipe", std::string("No pipe: ") + std::strerror(errno));
        return so_far.result;
    }
    std::fflush(nullptr);
    km::uxl_max_bytes(0); // the code page is looked up once for both processes
    waiting_signals while_it_runs;
    const pid_t child = ::fork();
    if (child < 0) {
        so_far.result.fail(exit_failed, "fork", std::string("No process: ") + std::strerror(errno));
        ::close(ends[0]);
        ::close(ends[1]);
        return so_far.result;
    }
    if (child == 0) {
        ::close(ends[0]);
        be_worker(ends[1], body);
    }
    while_it_runs.begin(child);
    ::close(ends[1]);
    listen(ends[0], so_far, watch);
    ::close(ends[0]);
    const int status = wait_for(child);
    so_far.end.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    so_far.end.status = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    so_far.end.ended_early = !so_far.has_result;
    if (end)
        *end = so_far.end;
    return so_far.has_result ? so_far.result : early_end(so_far.end);
}

} // namespace kmhost
