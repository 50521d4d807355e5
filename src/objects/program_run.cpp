// program_run: one run of a program, watched
// no format
// invariants: between fork and exec only calls that are safe there; a bounded part of what it
// writes is kept
#include "program_run.h"

#include "target_root.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace km {

bool split_words(const std::string& text, std::vector<std::string>& words) {
    std::string word;
    bool in_word = false;
    char quote = '\0';
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (quote == '\'' || (quote == '"' && c != '\\')) {
            if (c == quote)
                quote = '\0';
            else
                word += c;
        } else if (c == '\\') {
            if (at + 1 == text.size())
                return false;
            const char next = text[++at];
            if (quote && next != '"' && next != '\\')
                word += c;
            word += next;
            in_word = true;
        } else if (c == '\'' || c == '"') {
            quote = c;
            in_word = true;
        } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            if (in_word)
                words.push_back(word);
            word.clear();
            in_word = false;
        } else {
            word += c;
            in_word = true;
        }
    }
    if (in_word)
        words.push_back(word);
    return !quote;
}

namespace {

constexpr size_t kept_output = 64 * 1024;
constexpr int grace_seconds = 5;
constexpr int look_again = 100; // milliseconds

// What the child needs, made before the fork.
struct prepared {
    std::vector<char*> arguments, environment;
    const char* root = nullptr;
};

std::vector<char*> pointers_to(const std::vector<std::string>& texts) {
    std::vector<char*> all;
    for (const auto& text : texts)
        all.push_back(const_cast<char*>(text.c_str()));
    all.push_back(nullptr);
    return all;
}

// What the child tells where it cannot start: the step, and errno.
struct complaint {
    enum : int { session, root, user, directory, program } step;
    int error;
};
constexpr const char* steps[] = {"begin a session", "change its root directory", "become its user",
                                 "enter its working directory", "start"};

[[noreturn]] void complain(int to, complaint what) {
    if (::write(to, &what, sizeof what) < 0)
        ::_exit(126);
    ::_exit(127);
}

bool become_user(const program_request& request) {
    return !request.changes_user ||
           (::setgroups(request.groups.size(), request.groups.data()) == 0 &&
            ::setgid(request.group) == 0 && ::setuid(request.user) == 0);
}

[[noreturn]] void be_the_program(const program_request& request, const prepared& ready, int output,
                                 int complaints, pid_t starter) {
    for (int number = 1; number < NSIG; ++number)
        ::signal(number, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (::setsid() < 0)
        complain(complaints, {complaint::session, errno});
    constexpr int above_the_standard_ones = 10;
    output = ::fcntl(output, F_DUPFD, above_the_standard_ones);
    complaints = ::fcntl(complaints, F_DUPFD, above_the_standard_ones);
    ::dup2(::open("/dev/null", O_RDONLY), 0);
    ::dup2(output, 1);
    ::dup2(output, 2);
    ::dup2(complaints, 3);
    complaints = 3;
    ::fcntl(complaints, F_SETFD, FD_CLOEXEC);
    ::syscall(SYS_close_range, 4U, ~0U, 0U);
    ::umask(022);
    if (ready.root && (::chroot(ready.root) != 0 || ::chdir("/") != 0))
        complain(complaints, {complaint::root, errno});
    if (!become_user(request))
        complain(complaints, {complaint::user, errno});
    ::prctl(PR_SET_PDEATHSIG, SIGTERM); // a change of the user forgets it
    if (::getppid() != starter)
        ::_exit(127);
    if (::chdir(request.working_directory.c_str()) != 0)
        complain(complaints, {complaint::directory, errno});
    ::execve(request.path.c_str(), ready.arguments.data(), ready.environment.data());
    complain(complaints, {complaint::program, errno});
}

long now_in_milliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

class watcher {
  public:
    watcher(pid_t child, int output, program_outcome& outcome)
        : child_(child), output_(output), outcome_(outcome) {}

    // To the end of the program.
    void watch(long time_limit);

  private:
    void take_output();
    void wait_a_moment(long deadline);
    void press(long& deadline);
    bool has_ended();

    pid_t child_;
    int output_; // -1: its other end is closed
    program_outcome& outcome_;
    int pressed_ = 0; // signals sent
};

// All that is there to read. A program in the background may hold the other end for ever.
void watcher::take_output() {
    char block[8192];
    while (output_ >= 0) {
        const ssize_t got = ::read(output_, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno == EAGAIN)
            return;
        if (got <= 0) {
            output_ = -1;
            return;
        }
        auto& kept = outcome_.output;
        kept.append(block, static_cast<size_t>(got));
        if (kept.size() > 2 * kept_output) {
            outcome_.lost += kept.size() - kept_output;
            kept.erase(0, kept.size() - kept_output);
        }
    }
}

void watcher::wait_a_moment(long deadline) {
    const long left = deadline < 0 ? look_again : deadline - now_in_milliseconds();
    const int longest = output_ < 0 ? 2 : look_again; // only its end is still to come
    const int wait = static_cast<int>(left < 0 ? 0 : left < longest ? left : longest);
    pollfd one{output_, POLLIN, 0};
    ::poll(&one, output_ < 0 ? 0 : 1, wait);
}

// The time is over: first in kindness, then by force.
void watcher::press(long& deadline) {
    if (deadline < 0 || now_in_milliseconds() < deadline)
        return;
    ::kill(-child_, pressed_++ ? SIGKILL : SIGTERM);
    deadline = pressed_ > 1 ? -1 : now_in_milliseconds() + grace_seconds * 1000L;
}

bool watcher::has_ended() {
    int status = 0;
    const pid_t got = ::waitpid(child_, &status, WNOHANG);
    if (got == 0 || (got < 0 && errno == EINTR))
        return false;
    if (got < 0) {
        outcome_.how = program_outcome::end::not_started;
        outcome_.code = errno;
        outcome_.step = "be waited for";
    } else if (pressed_) {
        outcome_.how = program_outcome::end::timed_out;
    } else if (WIFEXITED(status)) {
        outcome_.how = program_outcome::end::exited;
        outcome_.code = WEXITSTATUS(status);
    } else {
        outcome_.how = program_outcome::end::killed;
        outcome_.code = WTERMSIG(status);
    }
    return true;
}

void watcher::watch(long time_limit) {
    long deadline = time_limit < 0 ? -1 : now_in_milliseconds() + time_limit * 1000;
    while (!has_ended()) {
        wait_a_moment(deadline);
        take_output();
        press(deadline);
    }
    take_output();
    if (pressed_)
        ::kill(-child_, SIGKILL); // what it started, too
    auto& kept = outcome_.output;
    if (kept.size() > kept_output) {
        outcome_.lost += kept.size() - kept_output;
        kept.erase(0, kept.size() - kept_output);
    }
}

class pipe_ends {
  public:
    explicit pipe_ends(int flags) {
        if (::pipe2(ends_, flags) != 0)
            ends_[0] = ends_[1] = -1;
    }
    ~pipe_ends() {
        close(0);
        close(1);
    }
    pipe_ends(const pipe_ends&) = delete;
    pipe_ends& operator=(const pipe_ends&) = delete;
    bool good() const { return ends_[0] >= 0; }
    int operator[](int end) const { return ends_[end]; }
    void close(int end) {
        if (ends_[end] >= 0)
            ::close(ends_[end]);
        ends_[end] = -1;
    }

  private:
    int ends_[2];
};

bool has_started(int complaints, program_outcome& outcome) {
    complaint what{};
    ssize_t got = 0;
    do
        got = ::read(complaints, &what, sizeof what);
    while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof what))
        return true;
    outcome.how = program_outcome::end::not_started;
    outcome.code = what.error;
    outcome.step = steps[what.step];
    return false;
}

} // namespace

program_outcome run_program(const program_request& request) {
    program_outcome outcome;
    std::vector<std::string> arguments{request.path};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    prepared ready{pointers_to(arguments), pointers_to(request.environment), nullptr};
    if (!get_target_root().empty())
        ready.root = get_target_root().c_str();
    pipe_ends output(O_CLOEXEC), complaints(O_CLOEXEC);
    const pid_t starter = ::getpid();
    const pid_t child = output.good() && complaints.good() ? ::fork() : -1;
    if (child == 0)
        be_the_program(request, ready, output[1], complaints[1], starter);
    if (child < 0) {
        outcome.code = errno;
        outcome.step = "start";
        return outcome;
    }
    output.close(1);
    complaints.close(1);
    ::fcntl(output[0], F_SETFL, O_NONBLOCK);
    if (!has_started(complaints[0], outcome)) {
        int status = 0;
        while (::waitpid(child, &status, 0) < 0 && errno == EINTR)
            ;
        return outcome;
    }
    watcher(child, output[0], outcome).watch(request.time_limit);
    return outcome;
}

} // namespace km
