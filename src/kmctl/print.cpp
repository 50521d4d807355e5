// print: the one place where kmctl writes to its two outputs
// no format
// invariant: with --json standard output holds exactly one JSON object
#include "print.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace kmctl {

namespace {

bool wants_color(const global_options& options) {
    if (options.color != when::automatic)
        return options.color == when::always;
    const char* none = std::getenv("NO_COLOR");
    return ::isatty(STDERR_FILENO) && !(none && *none);
}

bool wants_progress(const global_options& options) {
    if (options.progress != when::automatic)
        return options.progress == when::always;
    return !options.quiet && !options.json && ::isatty(STDERR_FILENO);
}

const char* color_of(kmhost::severity level) {
    switch (level) {
    case kmhost::severity::error:
        return "\x1b[31m";
    case kmhost::severity::warning:
        return "\x1b[33m";
    default:
        return "";
    }
}

// File names and package texts come from strangers: a terminal must not take orders from them.
std::string printable(const std::string& text, bool one_line) {
    std::string out;
    for (unsigned char c : text)
        if ((c < 0x20 && (one_line || (c != '\n' && c != '\t'))) || c == 0x7f) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", c);
            out += code;
        } else {
            out += static_cast<char>(c);
        }
    return out;
}

void print_message(const global_options& options, const kmhost::message& one) {
    if (options.quiet && one.level != kmhost::severity::error)
        return;
    const char* head = one.level == kmhost::severity::error     ? "error: "
                       : one.level == kmhost::severity::warning ? "warning: "
                                                                : "";
    const bool color = wants_color(options) && one.level != kmhost::severity::info;
    std::string text = printable(one.text, true);
    // Numbers of the engine's messages are for programs; those of faults in a text are looked up.
    if (!one.place.empty() || (options.verbose && !one.id.starts_with("ZNPSE")))
        text += " [" + one.id + "]";
    const std::string place = one.place.empty() ? "" : printable(one.place, true) + ": ";
    std::fprintf(stderr, "%s%s%s%s%s\n", place.c_str(), color ? color_of(one.level) : "", head,
                 color ? "\x1b[0m" : "", text.c_str());
    if (!one.shown.empty())
        std::fprintf(stderr, "%s\n", printable(one.shown, false).c_str());
}

} // namespace

bool print_outcome(const global_options& options, const std::string& command,
                   const kmhost::outcome& result) {
    for (const auto& one : result.messages)
        print_message(options, one);
    std::string text = options.json ? kmhost::to_json_text(result, command) : result.text;
    if (!options.json && ::isatty(STDOUT_FILENO))
        text = printable(text, false);
    if (!text.empty() && text.back() != '\n')
        text += '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return true;
    std::fprintf(stderr, "error: standard output cannot be written: %s\n", std::strerror(errno));
    return false;
}

kmhost::progress_watcher make_progress_line(const global_options& options,
                                            const std::string& command) {
    if (!wants_progress(options))
        return {};
    return [command](const kmhost::progress_report& report) {
        if (report.total > 0)
            std::fprintf(stderr, "\r\x1b[K%s: %3ld%% (%ld of %ld) %.60s", command.c_str(),
                         report.done * 100 / report.total, report.done, report.total,
                         printable(report.what, true).c_str());
        else
            std::fprintf(stderr, "\r\x1b[K%s: %ld %.60s", command.c_str(), report.done,
                         printable(report.what, true).c_str());
        std::fflush(stderr);
    };
}

void print_at_once(const global_options& options, const kmhost::message& one) {
    if (!options.json)
        print_message(options, one);
    std::fflush(stderr);
}

void end_progress_line(const global_options& options) {
    if (wants_progress(options))
        std::fputs("\r\x1b[K", stderr);
}

} // namespace kmctl
