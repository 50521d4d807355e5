// run_log: what kmctl did, in the log of the runtime services
// format: docs/formats/log-file.md
// invariant: whatever becomes of the log, the command goes on
#include "run_log.h"

#include "base/log.h"
#include "file.h"
#include "trclog.h"

#include <unistd.h>

namespace kmhost {

namespace {

constexpr long largest_log = 1000000;
enum level : int { errors = 1, warnings = 2, course = 3 };

km::LogAllocStruct* handle_of(void* log) { return static_cast<km::LogAllocStruct*>(log); }

void tell_trace(const char* text) {
    static constexpr const char* km_function_name = "run_log";
    KM_TRACE(km::trace_warning, "common", "%s", text);
}

// Names and paths of strangers must not look like lines of their own.
std::string on_one_line(std::string text) {
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
            c = ' ';
    return text;
}

std::string package_text(const outcome& result) {
    if (!result.package)
        return "";
    const auto& one = *result.package;
    return ", " + one.name + "^" + one.version + (one.state.empty() ? "" : " " + one.state);
}

} // namespace

run_log::run_log(const std::string& state, const std::string& what) : what_(what) {
    if (state.empty())
        return;
    km::LogSetTroubleWatcher(tell_trace);
    const std::string directory = state + "/log";
    km::file(km::pathname(directory.c_str())).mk_tree();
    const std::string name = "kmctl " + std::to_string(::getpid());
    log_ = km::LogInit((directory + "/kmctl.log").c_str(), name.c_str(), course, 0, largest_log);
}

run_log::~run_log() {
    km::LogDeinit(handle_of(log_));
    km::LogSetTroubleWatcher(nullptr);
}

void run_log::line(int level, const std::string& text) {
    if (log_)
        km::LogMsg(level, handle_of(log_), nullptr, 0, "%1$s", on_one_line(text).c_str());
}

void run_log::begins() { line(course, what_ + " begins"); }

void run_log::adds(const message& one) {
    line(one.level == severity::error ? errors : warnings,
         what_ + ": " + severity_word(one.level) + " " + one.id + ": " + one.text);
}

void run_log::ended(const outcome& result, bool early) {
    if (early)
        line(errors, what_ + ": internal error, the worker ended early");
    for (const auto& one : result.messages)
        if (one.level != severity::info)
            adds(one);
    line(course, what_ + " ended: " + result.word + ", exit code " + std::to_string(result.exit) +
                     package_text(result));
}

} // namespace kmhost
