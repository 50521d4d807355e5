// stream_options: packages from servers, and what is done where the line breaks
// no format
// invariant: each try is told; the last failure is what the outcome says
#include "stream_options.h"

#include "engine_types.h"
#include "package_stream.h"
#include "print.h"

#include <algorithm>
#include <csignal>
#include <ctime>

namespace kmctl {

using kmhost::outcome;

namespace {

constexpr long longest_pause = 300; // seconds

// False: somebody asked this process to end meanwhile.
bool pause(long seconds) {
    sigset_t ends, before;
    ::sigemptyset(&ends);
    ::sigaddset(&ends, SIGINT);
    ::sigaddset(&ends, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &ends, &before);
    const timespec length{seconds, 0};
    const bool is_over = ::sigtimedwait(&ends, nullptr, &length) < 0;
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    return is_over;
}

std::string try_words(const kmhost::stream_loss& loss, long tried, long of, long seconds) {
    return "The stream from " + loss.address + " was lost at byte " + std::to_string(loss.offset) +
           ": " + loss.reason + ". Try " + std::to_string(tried) + " of " + std::to_string(of) +
           " in " + std::to_string(seconds) + (seconds == 1 ? " second." : " seconds.");
}

// The outcome of a worker that ended with the loss.
outcome outcome_of(const kmhost::stream_loss& loss, const outcome& told, bool ended_early) {
    if (!ended_early)
        return told;
    outcome result;
    if (loss.is_pending)
        result.fail(kmhost::exit_busy, loss.has_changed ? "source_changed" : "network",
                    kmhost::loss_words(loss), "pending");
    else
        result.fail(kmhost::exit_failed, "network",
                    loss.address + " cannot be read: " + loss.reason + ". Nothing was changed.");
    return result;
}

outcome go_back(const kmhost::stream_loss& loss, const kmhost::worker_body& before_each,
                const kmhost::progress_watcher& watch) {
    const auto body = [&](kmhost::worker_line& line, outcome& result) {
        before_each(line, result);
        if (!result.failed())
            kmhost::take_back(kmhost::parse_id(loss.package), -1, line, result);
    };
    const outcome back = kmhost::run_worker(body, watch);
    if (back.failed())
        return back;
    outcome result;
    result.package = back.package;
    result.fail(kmhost::exit_failed, "source_changed",
                loss.address + " is another file than before: " + loss.reason +
                    ". What was done with its first part was taken back.");
    return result;
}

} // namespace

void add_retry_options(CLI::App& command, stream_arguments& given) {
    command
        .add_option("--retries", given.retries,
                    "From a server: tries in a row that bring nothing more (3)")
        ->type_name("N")
        ->check(CLI::Range(0L, 1000000L).description(""));
    command
        .add_option("--retry-wait", given.retry_wait,
                    "Pause in front of the first of them, doubled each time (2)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0L, longest_pause).description(""));
}

void add_stream_options(CLI::App& command, stream_arguments& given,
                        kmhost::operation_request& operation) {
    command
        .add_option("--expect-sha256", operation.expected,
                    "The digest that the package file must have")
        ->type_name("HEX");
    command
        .add_option("--on-change", given.on_change,
                    "keep or rollback, where the file on the server changes meanwhile (keep)")
        ->type_name("WHAT")
        ->check(CLI::IsMember({"keep", "rollback"}).description(""))
        ->each([&operation](const std::string& what) { operation.goes_back = what == "rollback"; });
    add_retry_options(command, given);
}

std::string fault_of_stream(kmhost::operation_request& operation) {
    if (!operation.expected.empty() && !kmhost::is_digest(operation.expected))
        return "--expect-sha256: " + operation.expected +
               " is no SHA-256: that is 64 hexadecimal digits.";
    if (!operation.expected.empty() && kmhost::is_address(operation.target) &&
        (operation.mode & km::m_repair))
        return "--repair goes with no --expect-sha256 of an address: it makes no backup.";
    return "";
}

outcome run_with_retries(const global_options& options, const stream_arguments& given,
                         const kmhost::worker_body& body, const kmhost::worker_body& before_each,
                         const kmhost::progress_watcher& watch, kmhost::worker_end& end) {
    long tried = 0, furthest = -1, seconds = given.retry_wait;
    outcome told;
    for (;;) {
        outcome result = kmhost::run_worker(body, watch, &end);
        const auto loss = end.loss;
        if (loss && loss->has_changed && loss->is_pending && loss->goes_back)
            result = go_back(*loss, before_each, watch);
        else if (loss)
            result = outcome_of(*loss, result, end.ended_early);
        if (loss && loss->offset > furthest) {
            furthest = loss->offset;
            tried = 0;
            seconds = given.retry_wait;
        }
        const bool again = loss && result.failed() && loss->can_be_retried && tried < given.retries;
        if (again) {
            ++tried;
            told.warn("retry", try_words(*loss, tried, given.retries, seconds));
            end_progress_line(options);
            print_at_once(options, told.messages.back());
        }
        if (!again || !pause(seconds)) {
            if (options.json)
                result.messages.insert(result.messages.begin(), told.messages.begin(),
                                       told.messages.end());
            return result;
        }
        seconds = std::min(seconds * 2, longest_pause);
    }
}

} // namespace kmctl
