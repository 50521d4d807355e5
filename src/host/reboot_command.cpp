// reboot_command: the reboot that packages asked for, by the command that the settings name
// no format
// invariant: without the setting nothing is rebooted
#include "reboot_command.h"

#include "base_configuration.h"
#include "booting_list.h"
#include "location.h"
#include "program_run.h"
#include "reboot.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sys/wait.h>
#include <unistd.h>
#include <utmpx.h>

namespace kmhost {

namespace {

constexpr long default_limit = 5;
constexpr const char* order_key = "reboot_order";

// Names of those who are logged in at this machine; KMCTL_UTMP_FILE names another list of them.
std::set<std::string> people_here() {
    const char* file = std::getenv("KMCTL_UTMP_FILE");
    ::utmpxname(file && *file ? file : "/run/utmp");
    std::set<std::string> names;
    ::setutxent();
    while (const auto* one = ::getutxent())
        if (one->ut_type == USER_PROCESS && one->ut_pid > 0 &&
            (::kill(one->ut_pid, 0) == 0 || errno == EPERM))
            names.insert(std::string(one->ut_user, ::strnlen(one->ut_user, sizeof one->ut_user)));
    ::endutxent();
    return names;
}

std::string joined(const std::set<std::string>& names) {
    std::string text;
    for (const auto& one : names)
        text += (text.empty() ? "" : ", ") + one;
    return text;
}

long limit() {
    const std::string text = setting("reboot_limit");
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    return text.empty() || *end || value < 0 ? default_limit : value;
}

struct wishes {
    std::set<std::string> packages;
    std::set<std::string> beyond_limit; // of boots
    bool is_forced = false;
    bool is_time_over = false;
};

wishes collect() {
    wishes all;
    const long most = limit();
    all.is_forced = km::base_configuration().get_resinit_reboot_forced();
    for (const auto& id : boot_list()) {
        if (!wants_reboot(id))
            continue;
        if (boots_asked_for(id) > most) {
            all.beyond_limit.insert(id.text());
            continue;
        }
        long timeout = -1;
        int force = 0;
        km::is_in_booting_list(km::ustring(id.name.c_str()), km::ustring(id.version.c_str()),
                               &timeout, &force);
        all.packages.insert(id.text());
        all.is_forced = all.is_forced || force;
        all.is_time_over = all.is_time_over || timeout >= 0;
    }
    return all;
}

void order_reboot(const std::vector<std::string>& words, const wishes& all, outcome& result) {
    result.data[order_key] = {
        {"words", words},
        {"environment", "KM_REBOOT_FORCE=" + std::string(all.is_forced ? "1" : "0") +
                            "\nKM_REBOOT_PACKAGES=" + joined(all.packages)}};
    result.info("rebooting",
                "The machine is rebooted now, as asked for by " + joined(all.packages) + ".");
}

// What the command prints must not come between what kmctl tells.
[[noreturn]] void become(const reboot_order& order) {
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    std::vector<char*> words;
    for (const auto& one : order.words)
        words.push_back(const_cast<char*>(one.c_str()));
    words.push_back(nullptr);
    std::string lines = order.environment;
    for (char* at = lines.data(); at && *at;) {
        char* end = std::strchr(at, '\n');
        if (end)
            *end++ = '\0';
        ::putenv(at);
        at = end;
    }
    ::execvp(words[0], words.data());
    ::_exit(127);
}

} // namespace

void decide_reboot(outcome& result) {
    const std::string command = setting("reboot_command");
    if (command.empty())
        return;
    const wishes all = collect();
    if (!all.beyond_limit.empty())
        result.warn("reboot_limit", joined(all.beyond_limit) + " asked for more than " +
                                        std::to_string(limit()) +
                                        " reboots in a row; reboot the machine by hand.");
    if (all.packages.empty())
        return;
    std::vector<std::string> words;
    if (!km::split_words(command, words) || words.empty())
        return result.warn("reboot_command",
                           "The setting reboot_command is no command: " + command);
    const auto people = people_here();
    if (people.empty() || all.is_forced || all.is_time_over)
        return order_reboot(words, all, result);
    result.info("reboot_held", "The reboot that " + joined(all.packages) +
                                   " asked for waits: logged in is " + joined(people) + ".");
}

namespace {

reboot_order take_order(outcome& result) {
    reboot_order order;
    if (!result.data.is_object() || !result.data.contains(order_key))
        return order;
    const auto told = result.data[order_key];
    order.words = told.value("words", order.words);
    order.environment = told.value("environment", "");
    result.data.erase(order_key);
    return order;
}

sigset_t awaited() {
    sigset_t all;
    ::sigemptyset(&all);
    for (const int signal : {SIGCHLD, SIGTERM, SIGINT})
        ::sigaddset(&all, signal);
    return all;
}

using steady = std::chrono::steady_clock;

} // namespace

reboot_run::reboot_run(outcome& result) : order_(take_order(result)) {
    const sigset_t all = awaited();
    ::sigprocmask(SIG_BLOCK, order_.words.empty() ? nullptr : &all, &before_);
    if (order_.words.empty())
        return;
    ::signal(SIGCHLD, SIG_DFL);
    child_ = ::fork();
    fork_error_ = errno;
    if (child_ != 0)
        return;
    ::sigprocmask(SIG_UNBLOCK, &all, nullptr);
    become(order_);
}

reboot_run::~reboot_run() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

// False: it is at work still.
bool reboot_run::wait_until(long seconds, int& status) {
    constexpr std::chrono::seconds grace(1), for_ever(1000000000);
    const auto limit = seconds < 0 ? for_ever : std::chrono::seconds(seconds);
    auto end = steady::now() + (is_asked_to_end_ ? grace.zero() : limit);
    for (;;) {
        if (::waitpid(child_, &status, WNOHANG) != 0)
            return true;
        const auto left = end - steady::now();
        if (left <= left.zero())
            return false;
        const auto whole = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec time{whole.count(), std::chrono::nanoseconds(left - whole).count()};
        const sigset_t all = awaited();
        const int signal = ::sigtimedwait(&all, nullptr, &time);
        if (signal == SIGTERM || signal == SIGINT) {
            is_asked_to_end_ = true;
            end = std::min(end, steady::now() + grace);
        }
    }
}

bool reboot_run::is_good_within(long seconds, std::string& why) {
    if (order_.words.empty() || child_ == 0)
        return true;
    why = "The machine was not rebooted: " + order_.words[0] + " ";
    if (child_ < 0) {
        child_ = 0;
        why += std::string("cannot be started: ") + std::strerror(fork_error_) + ".";
        return false;
    }
    int status = 0;
    if (!wait_until(seconds, status))
        return true;
    child_ = 0;
    if (WIFEXITED(status))
        why += "ended with " + std::to_string(WEXITSTATUS(status)) + ".";
    else
        why += "was ended by signal " + std::to_string(WTERMSIG(status)) + ".";
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace kmhost
