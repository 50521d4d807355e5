// main: the command line of kmctl
// no format
// invariants: exactly one outcome is printed per call; the engine never runs in this process
#include "definition_commands.h"
#include "engine_run.h"
#include "life_commands.h"
#include "location.h"
#include "operations.h"
#include "options.h"
#include "print.h"
#include "queries.h"
#include "reboot_command.h"
#include "report_commands.h"
#include "report_delivery.h"
#include "report_writer.h"
#include "run_log.h"
#include "stream_options.h"
#include "trace_option.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace {

using kmctl::global_options;
using kmhost::outcome;

constexpr const char* version_text = "kmctl " KM_VERSION;

// What a command line asks for, and what carries it out in the worker.
struct chosen {
    std::string command = "kmctl";
    bool needs_no_state = false; // works in one of its own unless one was given
    bool only_reads = false;     // a state that is not there is taken for an empty one
    bool only_answers = false;   // its text is what was asked for, also with --quiet
    kmhost::worker_body body;
};

struct arguments {
    kmctl::life_arguments life;
    kmctl::definition_arguments definition;
    kmctl::stream_arguments stream;
    kmctl::report_arguments report;
    kmhost::operation_request operation;
    std::string target;
    std::string key, value;
    bool tree = false, files = false, variables = false, repair = false, rebuild = false,
         yes = false;
};

void add_globals(CLI::App& app, global_options& options) {
    const std::map<std::string, kmctl::when> progress{
        {"auto", kmctl::when::automatic}, {"yes", kmctl::when::always}, {"no", kmctl::when::never}};
    const std::map<std::string, kmctl::when> color{{"auto", kmctl::when::automatic},
                                                   {"always", kmctl::when::always},
                                                   {"never", kmctl::when::never}};
    app.add_option("--state", options.state, "Directory of all that the engine keeps")
        ->type_name("DIR");
    auto* root =
        app.add_option("--root", options.root, "Put in front of every path that packages touch")
            ->type_name("DIR");
    app.add_flag("--user", options.user, "Packages of yours, below your home directory")
        ->excludes(root);
    app.add_flag("--json", options.json, "One JSON object on standard output");
    app.add_flag("-q,--quiet", options.quiet, "Errors only");
    app.add_flag("-v,--verbose", options.verbose, "Tell more");
    app.add_option("--progress", options.progress, "auto, yes or no")
        ->transform(CLI::Transformer(progress).description(""))
        ->type_name("WHEN");
    app.add_option("--wait", options.wait_seconds, "Seconds to wait for the lock, -1 for ever (30)")
        ->type_name("SECONDS")
        ->check(CLI::Range(-1L, 100000000L).description(""));
    app.add_option("--trace", options.trace_level, "Level of the trace, 0 to 6")
        ->type_name("LEVEL")
        ->check(CLI::Range(0, 6).description(""));
    app.add_option("--color", options.color, "auto, always or never")
        ->transform(CLI::Transformer(color).description(""))
        ->type_name("WHEN");
    app.add_flag("--reboot-exit-code", options.reboot_exit_code,
                 "Exit with 4 where a reboot is needed");
    app.add_option("--report-as", options.distribution,
                   "Id of the distribution that the reports of this run belong to")
        ->type_name("ID");
    app.set_version_flag("--version", version_text, "Version of this program");
}

void add_show(CLI::App& app, arguments& given, chosen& choice) {
    auto* one = app.add_subcommand("show", "Show a package file or an installed package");
    one->add_option("PACKAGE", given.target, "Package file, or NAME[^VERSION]")->required();
    auto* tree = one->add_flag("--tree", given.tree, "The tree of commands");
    auto* files = one->add_flag("--files", given.files, "The files, with mode and size");
    auto* variables = one->add_flag("--variables", given.variables, "The variables");
    tree->excludes(files)->excludes(variables);
    files->excludes(variables);
    one->callback([&] {
        choice.command = "show";
        choice.only_reads = choice.only_answers = true;
        choice.body = [&given](kmhost::worker_line&, outcome& result) {
            const auto part = given.tree        ? kmhost::show_part::tree
                              : given.files     ? kmhost::show_part::files
                              : given.variables ? kmhost::show_part::variables
                                                : kmhost::show_part::summary;
            kmhost::show(given.target, part, result);
        };
    });
}

// Combinations that the engine would refuse, or pass over in silence.
void refuse_fault_of_mode(unsigned mode) {
    if (const auto fault = kmctl::fault_of_mode(mode); !fault.empty())
        throw CLI::ValidationError(fault);
}

void add_install(CLI::App& app, arguments& given, chosen& choice) {
    auto* one = app.add_subcommand("install", "Install a package file, or one from a server");
    auto& operation = given.operation;
    one->add_option("FILE", operation.target, "Package file, or its address")->required();
    one->add_option("-D,--define", operation.definitions, "Value of a variable")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    kmctl::add_mode_options(*one, operation.mode, true);
    kmctl::add_stream_options(*one, given.stream, operation);
    one->add_flag("-n,--dry-run", operation.dry_run, "Tell what would be done, and do nothing");
    one->add_flag("-y,--yes", given.yes, "Ask nothing (there are no questions yet)");
    one->callback([&] {
        choice.command = "install";
        choice.only_reads = choice.only_answers = operation.dry_run;
        refuse_fault_of_mode(operation.mode);
        if (const auto fault = kmctl::fault_of_stream(operation); !fault.empty())
            throw CLI::ValidationError(fault);
        choice.body = [&operation](kmhost::worker_line& line, outcome& result) {
            kmhost::install(operation, line, result);
        };
    });
}

void add_remove(CLI::App& app, arguments& given, chosen& choice) {
    auto* one = app.add_subcommand("remove", "Remove an installed package");
    auto& operation = given.operation;
    one->add_option("PACKAGE", operation.target, "NAME[^VERSION]")->required();
    kmctl::add_mode_options(*one, operation.mode, false);
    one->add_flag("-n,--dry-run", operation.dry_run, "Tell what would be done, and do nothing");
    one->add_flag("-y,--yes", given.yes, "Ask nothing (there are no questions yet)");
    one->callback([&] {
        choice.command = "remove";
        choice.only_reads = choice.only_answers = operation.dry_run;
        refuse_fault_of_mode(operation.mode);
        choice.body = [&operation](kmhost::worker_line& line, outcome& result) {
            kmhost::remove(operation, line, result);
        };
    });
}

// A command that only asks, with at most one argument.
void add_query(CLI::App& app, const char* name, const char* about, const char* argument,
               bool needed, arguments& given, chosen& choice,
               void (*ask)(const std::string&, outcome&)) {
    auto* one = app.add_subcommand(name, about);
    if (argument)
        one->add_option(argument, given.target)->required(needed);
    one->callback([&given, &choice, name, ask] {
        choice.command = name;
        choice.only_reads = choice.only_answers = true;
        choice.body = [&given, ask](kmhost::worker_line&, outcome& result) {
            ask(given.target, result);
        };
    });
}

void add_config(CLI::App& app, arguments& given, chosen& choice) {
    auto* config = app.add_subcommand("config", "Settings of the engine");
    config->require_subcommand(1);
    config->add_subcommand("list", "All settings")->callback([&] {
        choice.body = [](kmhost::worker_line&, outcome& result) { kmhost::config_list(result); };
    });
    auto* get = config->add_subcommand("get", "One setting");
    get->add_option("NAME", given.key)->required();
    get->callback([&] {
        choice.body = [&given](kmhost::worker_line&, outcome& result) {
            kmhost::config_get(given.key, result);
        };
    });
    auto* set = config->add_subcommand("set", "Change a setting");
    set->add_option("NAME", given.key)->required();
    set->add_option("VALUE", given.value)->required();
    set->callback([&] {
        choice.body = [&given](kmhost::worker_line&, outcome& result) {
            kmhost::config_set(given.key, given.value, result);
        };
    });
    config->callback([&choice, set] {
        choice.command = "config";
        choice.only_answers = !set->parsed();
    });
}

void add_check(CLI::App& app, arguments& given, const global_options& options, chosen& choice) {
    auto* one = app.add_subcommand("check", "Look for faults of the state");
    one->add_flag("--repair", given.repair, "Mend what can be mended");
    one->add_flag("--rebuild-references", given.rebuild,
                  "Set the reference counts as the profiles say");
    one->callback([&] {
        choice.command = "check";
        choice.only_reads = !given.repair && !given.rebuild;
        choice.body = [&given, &options](kmhost::worker_line&, outcome& result) {
            kmhost::check(given.repair, given.rebuild, options.wait_seconds, result);
        };
    });
}

void add_commands(CLI::App& app, arguments& given, const global_options& options, chosen& choice) {
    add_install(app, given, choice);
    add_remove(app, given, choice);
    add_query(app, "list", "Installed packages", "PATTERN", false, given, choice, kmhost::list);
    add_query(app, "status", "State of an installed package", "PACKAGE", true, given, choice,
              kmhost::status);
    add_query(app, "log", "What was done with a package", "PACKAGE", true, given, choice,
              kmhost::log);
    add_show(app, given, choice);
    add_config(app, given, choice);
    add_query(app, "variables", "Variables that packages can ask for", nullptr, false, given,
              choice, [](const std::string&, outcome& result) { kmhost::variables(result); });
    add_check(app, given, options, choice);
    const auto choose = [&choice](const char* name, bool only_reads, bool only_answers,
                                  kmhost::worker_body body) {
        choice.command = name;
        choice.only_reads = only_reads;
        choice.only_answers = only_answers;
        choice.body = std::move(body);
    };
    kmctl::add_life_commands(app, options, given.life, given.stream, choose);
    kmctl::add_report_commands(app, given.report, choose);
    kmctl::add_definition_commands(
        app, given.definition,
        [&choice](const char* name, bool needs_state, kmhost::worker_body body) {
            choice.command = name;
            choice.needs_no_state = !needs_state;
            choice.only_reads = true;
            choice.body = std::move(body);
        });
    app.require_subcommand(1);
    app.fallthrough();
    for (auto* one : app.get_subcommands({})) {
        one->fallthrough();
        for (auto* inner : one->get_subcommands({}))
            inner->fallthrough();
    }
}

// Before the command line is parsed, so that a wrong one is told in the wanted form, too.
bool asks_for_json(int count, char** texts) {
    for (int i = 1; i < count; ++i)
        if (!std::strcmp(texts[i], "--json"))
            return true;
        else if (!std::strcmp(texts[i], "--"))
            return false;
    return false;
}

int tell_usage_fault(const CLI::App& app, const CLI::ParseError& fault, global_options options,
                     int count, char** texts) {
    if (fault.get_exit_code() == 0) // --help, --version
        return app.exit(fault);
    options.json = asks_for_json(count, texts);
    outcome result;
    const auto unknown = app.remaining();
    const bool no_command = app.get_subcommands().empty() && !unknown.empty();
    result.fail(kmhost::exit_usage, "usage",
                (no_command ? "There is no command '" + unknown.front() + "'."
                            : std::string(fault.what())) +
                    " ('kmctl --help' tells the commands)");
    kmctl::print_outcome(options, "kmctl", result);
    return result.exit;
}

bool is_missing(const kmhost::location& where) {
    const std::string state = kmhost::state_directory(where);
    return !state.empty() && ::access(state.c_str(), F_OK) != 0 && errno == ENOENT;
}

// What a change is about, for the log. Values of variables may be secrets: they are left out.
std::string words_of(const chosen& choice, const arguments& given) {
    std::string words = choice.command;
    for (const auto* one :
         {&given.operation.target, &given.life.operation.target, &given.life.newer, &given.key,
          &given.report.id, &given.report.selection.id})
        if (!one->empty())
            words += " " + *one;
    return words;
}

void report(const global_options& options, const arguments& given, const chosen& choice,
            kmhost::worker_line& line, outcome& result) {
    kmhost::set_distribution(options.distribution);
    const auto& operation = given.operation.target.empty() ? given.life.operation : given.operation;
    if (!operation.dry_run)
        kmhost::report_command(choice.command, operation.target, operation.mode, result);
    if (kmhost::has_written_report())
        line.reported();
}

// Carries the command out, and writes what it is to report in front of its end. Where a stream was
// lost that is not known yet.
void work(const global_options& options, const arguments& given, const chosen& choice,
          kmhost::worker_line& line, outcome& result) {
    kmhost::set_distribution(options.distribution);
    choice.body(line, result);
    if (!line.has_lost())
        report(options, given, choice, line, result);
}

// Of an answer the parent need not get what it will not print: both forms of a long list take their
// time.
void drop_untold(const global_options& options, const chosen& choice, outcome& result) {
    if (!choice.only_answers)
        return;
    if (options.json)
        result.text.clear();
    else
        result.data = nullptr;
}

// Writes the report of what failed for good because its stream was lost.
void report_loss(const global_options& options, const arguments& given, const chosen& choice,
                 const kmhost::worker_body& enter, kmhost::worker_end& end, outcome& result) {
    const auto body = [&](kmhost::worker_line& line, outcome& told) {
        enter(line, told);
        if (told.failed())
            return;
        told = result;
        report(options, given, choice, line, told);
    };
    kmhost::worker_end of_report;
    const outcome told = kmhost::run_worker(body, {}, &of_report);
    end.reported = end.reported || of_report.reported;
    if (!of_report.ended_early)
        result = told;
}

// The reboot that was asked for, behind all else. The machine may go down at once, so the log has
// its last line before; a fault that comes within `patience` belongs to the outcome.
void begin_reboot(kmhost::run_log& log, std::unique_ptr<kmhost::reboot_run>& reboot,
                  outcome& result) {
    constexpr long patience = 10; // seconds
    reboot = std::make_unique<kmhost::reboot_run>(result);
    std::string why;
    if (reboot->is_good_within(patience, why))
        return;
    result.fail(kmhost::exit_failed, "reboot_failed", why);
    log.adds(result.messages.back());
}

outcome carry_out(const global_options& options, const arguments& given, const chosen& choice,
                  std::unique_ptr<kmhost::reboot_run>& reboot) {
    const bool is_logged = !choice.only_reads && !choice.only_answers;
    const std::string words = words_of(choice, given);
    std::unique_ptr<kmhost::temporary_state> temporary;
    kmhost::location where{options.state, options.root, choice.only_reads, options.user};
    if ((choice.needs_no_state && where.state.empty()) ||
        (choice.only_reads && is_missing(where))) {
        temporary = std::make_unique<kmhost::temporary_state>();
        where.state = temporary->path();
    }
    const auto enter = [&](kmhost::worker_line& line, outcome& result) {
        if (!kmhost::enter_location(where, result))
            return;
        kmctl::start_trace(options);
        kmhost::set_hooks(line, nullptr);
    };
    const auto body = [&](kmhost::worker_line& line, outcome& result) {
        enter(line, result);
        if (result.failed())
            return;
        if (options.verbose)
            result.info("location", "State in " + kmhost::setting("product_dir") + ", root " +
                                        (where.root.empty() ? "/" : where.root) + ".");
        // The parent, which may outlive this process, writes the last lines.
        const std::string home = temporary ? "" : kmhost::setting("product_dir");
        line.note(home);
        if (is_logged)
            kmhost::run_log(home, words).begins();
        work(options, given, choice, line, result);
        if (is_logged)
            kmhost::decide_reboot(result);
        drop_untold(options, choice, result);
    };
    kmhost::hold_ends();
    const auto watch = kmctl::make_progress_line(options, choice.command);
    kmhost::worker_end end;
    outcome result = kmctl::run_with_retries(options, given.stream, body, enter, watch, end);
    kmctl::end_progress_line(options);
    if (end.loss && !choice.only_answers)
        report_loss(options, given, choice, enter, end, result);
    if (end.reported)
        kmhost::deliver_at_the_end(where, result);
    if (is_logged || end.ended_early) {
        kmhost::run_log log(end.note, words);
        log.ended(result, end.ended_early);
        begin_reboot(log, reboot, result);
    }
    return result;
}

} // namespace

int main(int count, char** texts) {
    global_options options;
    arguments given;
    chosen choice;
    // Never taken apart: what it holds is spread over many pages, each of which the worker shares.
    static CLI::App& app = *new CLI::App("Installs and removes software packages.", "kmctl");
    add_globals(app, options);
    add_commands(app, given, options, choice);
    try {
        app.parse(count, texts);
    } catch (const CLI::ParseError& fault) {
        return tell_usage_fault(app, fault, options, count, texts);
    }
    given.operation.wait_seconds = given.life.operation.wait_seconds = given.report.wait_seconds =
        options.wait_seconds;
    given.report.selection.with_data = options.json;
    std::unique_ptr<kmhost::reboot_run> reboot;
    outcome result = carry_out(options, given, choice, reboot);
    if (options.quiet && !choice.only_answers)
        result.text.clear();
    if (result.exit == kmhost::exit_reboot && !options.reboot_exit_code)
        result.exit = kmhost::exit_done;
    const bool printed = kmctl::print_outcome(options, choice.command, result);
    std::string why; // the exit code is told already
    if (reboot && !reboot->is_good_within(-1, why))
        std::cerr << "kmctl: " << why << "\n";
    return printed || result.failed() ? result.exit : int{kmhost::exit_failed};
}
