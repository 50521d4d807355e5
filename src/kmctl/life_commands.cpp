// life_commands: the commands behind install and remove
// no format
// invariant: every option of a mode is one bit of the engine's
#include "life_commands.h"

#include "delta.h"
#include "engine_types.h"
#include "inspect.h"
#include "resume.h"
#include "upgrade.h"

namespace kmctl {

using kmhost::outcome;
using kmhost::worker_line;

namespace {

struct mode_option {
    const char* name;
    unsigned bit;
    const char* about;
    bool for_install, for_remove;
};
constexpr mode_option mode_options[] = {
    {"--force", km::m_force, "Over any state", true, true},
    {"--undoable", km::m_undoable, "Make a backup, so that 'undo' takes it back", true, true},
    {"--preferably-undoable", km::m_preferably_undoable,
     "Make a backup if possible, go on without one otherwise", true, true},
    {"--transactional", km::m_transactional, "Prepare now, commit later", true, true},
    {"--undo-at-commit", km::m_undo_ability_transactional,
     "With --transactional: make the backup at commit", true, true},
    {"--auto-commit", km::m_auto_commit, "With --transactional: commit in the same run", true,
     true},
    {"--auto-accept", km::m_auto_accept, "Throw the backup away when all went well", true, true},
    {"--repair", km::m_repair, "Install again what differs only", true, false},
    {"--intelligent", km::m_intelligent_remove,
     "Remove also where an undo is still possible: accept first", false, true},
};

using simple_operation = void (*)(const kmhost::operation_request&, worker_line&, outcome&);

void add_later(CLI::App& app, const char* name, const char* about, life_arguments& given,
               const choose_command& choose, simple_operation call) {
    auto* one = app.add_subcommand(name, about);
    one->add_option("PACKAGE", given.operation.target, "NAME[^VERSION]")->required();
    one->add_flag("-n,--dry-run", given.operation.dry_run,
                  "Tell what would change, and change nothing");
    if (std::string(name) == "undo")
        one->add_flag("--prepare", given.undo_prepared,
                      "Prepare the undo; 'commit' carries it out, nothing drops it");
    one->callback([&given, choose, name, call] {
        if (given.undo_prepared)
            given.operation.mode = km::m_transactional;
        choose(name, given.operation.dry_run, given.operation.dry_run,
               [&given, call](worker_line& line, outcome& result) {
                   call(given.operation, line, result);
               });
    });
}

void add_verify(CLI::App& app, life_arguments& given, const choose_command& choose) {
    auto* verify = app.add_subcommand("verify", "Compare what stands with what was installed");
    auto* target = verify->add_option("PACKAGE", given.operation.target, "NAME[^VERSION]");
    verify->add_flag("--all", given.all, "All packages")->excludes(target);
    verify->callback([&given, choose] {
        if (given.operation.target.empty() && !given.all)
            throw CLI::RequiredError("PACKAGE or --all");
        choose("verify", false, true, [&given](worker_line& line, outcome& result) {
            kmhost::verify(given.operation, line, result);
        });
    });
    auto* repair = app.add_subcommand("repair", "Put in place again what differs");
    repair->add_option("PACKAGE", given.operation.target, "NAME[^VERSION]")->required();
    repair->add_option("--from", given.file, "Package file to take the data from")
        ->type_name("FILE");
    repair->callback([&given, choose] {
        choose("repair", false, false, [&given](worker_line& line, outcome& result) {
            kmhost::repair(given.operation, given.file, line, result);
        });
    });
}

void add_questions(CLI::App& app, life_arguments& given, const choose_command& choose) {
    auto* preview = app.add_subcommand("preview", "What an install would do, with sizes");
    preview->add_option("FILE", given.operation.target, "Package file, or its address")->required();
    for (const auto& one : mode_options)
        if (one.bit & (km::m_undoable | km::m_preferably_undoable | km::m_transactional))
            preview->add_flag_callback(
                one.name, [&given, &one] { given.operation.mode |= one.bit; }, one.about);
    auto* explain = app.add_subcommand("explain", "Why each command runs or does not");
    explain->add_option("PACKAGE", given.operation.target, "Package file, or NAME[^VERSION]")
        ->required();
    for (auto* one : {preview, explain})
        one->add_option("-D,--define", given.operation.definitions, "Value of a variable")
            ->type_name("NAME=VALUE")
            ->allow_extra_args(false);
    preview->callback([&given, choose] {
        if (const std::string fault = fault_of_mode(given.operation.mode); !fault.empty())
            throw CLI::ValidationError(fault);
        choose("preview", true, true, [&given](worker_line& line, outcome& result) {
            kmhost::preview(given.operation, line, result);
        });
    });
    explain->callback([&given, choose] {
        choose("explain", true, true, [&given](worker_line& line, outcome& result) {
            kmhost::explain(given.operation, line, result);
        });
    });
    auto* who = app.add_subcommand("who-uses", "Installed packages that hold a path");
    who->add_option("PATH", given.path, "Absolute path")->required();
    who->callback([&given, choose] {
        choose("who-uses", true, true,
               [&given](worker_line&, outcome& result) { kmhost::who_uses(given.path, result); });
    });
    auto* history = app.add_subcommand("history", "Operations on a package, with their time");
    history->add_option("PACKAGE", given.operation.target, "NAME[^VERSION]")->required();
    history->callback([&given, choose] {
        choose("history", true, true, [&given](worker_line&, outcome& result) {
            kmhost::history(given.operation.target, result);
        });
    });
}

void add_upgrade(CLI::App& app, life_arguments& given, stream_arguments& stream,
                 const choose_command& choose) {
    auto* one = app.add_subcommand("upgrade", "Install a version in the place of the older ones");
    auto& operation = given.operation;
    one->add_option("FILE", operation.target, "Package file, or its address")->required();
    one->add_option("-D,--define", operation.definitions, "Value of a variable")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    one->add_flag("-n,--dry-run", operation.dry_run, "Tell what would change, and change nothing");
    one->add_flag_callback(
        "--force", [&operation] { operation.mode |= km::m_force; }, "Also to an older version");
    add_stream_options(*one, stream, operation);
    one->callback([&operation, choose] {
        if (const auto fault = fault_of_stream(operation); !fault.empty())
            throw CLI::ValidationError(fault);
        choose("upgrade", operation.dry_run, operation.dry_run,
               [&operation](worker_line& line, outcome& result) {
                   kmhost::upgrade(operation, line, result);
               });
    });
    auto* resume = app.add_subcommand("resume", "Finish what was cut, or say what is pending");
    auto* package = resume->add_option("PACKAGE", operation.target, "NAME[^VERSION]");
    auto* back =
        resume->add_flag("--back", given.back, "Take it back instead, where there is a backup");
    resume->add_flag("--boot", given.boot, "All of it as the machine starts, for its start-up")
        ->excludes(package)
        ->excludes(back);
    add_retry_options(*resume, stream);
    resume->callback([&given, choose] {
        choose("resume", false, false, [&given](worker_line& line, outcome& result) {
            const auto how = given.boot   ? kmhost::resume_kind::boot
                             : given.back ? kmhost::resume_kind::back
                                          : kmhost::resume_kind::forward;
            kmhost::resume(given.operation, how, line, result);
        });
    });
}

} // namespace

void add_mode_options(CLI::App& command, unsigned& mode, bool installs) {
    for (const auto& one : mode_options)
        if (installs ? one.for_install : one.for_remove)
            command.add_flag_callback(
                one.name, [&mode, &one] { mode |= one.bit; }, one.about);
}

std::string fault_of_mode(unsigned mode) {
    const bool transactional = mode & km::m_transactional;
    constexpr unsigned backup =
        km::m_undoable | km::m_preferably_undoable | km::m_undo_ability_transactional;
    if ((mode & km::m_auto_commit) && !transactional)
        return "--auto-commit needs --transactional.";
    if ((mode & km::m_undo_ability_transactional) && !transactional)
        return "--undo-at-commit needs --transactional.";
    if ((mode & km::m_auto_accept) && !(mode & backup))
        return "--auto-accept needs --undoable, --preferably-undoable or --undo-at-commit.";
    if ((mode & km::m_auto_accept) && transactional && !(mode & km::m_auto_commit))
        return "--auto-accept with --transactional needs --auto-commit.";
    if ((mode & km::m_undoable) && (mode & km::m_preferably_undoable))
        return "--undoable and --preferably-undoable exclude each other.";
    if ((mode & km::m_repair) && (mode & (backup | km::m_transactional)))
        return "--repair goes with neither a backup nor --transactional.";
    return "";
}

void add_life_commands(CLI::App& app, const global_options&, life_arguments& given,
                       stream_arguments& stream, const choose_command& choose) {
    add_upgrade(app, given, stream, choose);
    add_later(app, "commit", "Put a prepared package in place", given, choose, kmhost::commit);
    add_later(app, "rollback", "Take a prepared package back", given, choose, kmhost::rollback);
    add_later(app, "undo", "Take an install or a remove back", given, choose, kmhost::undo);
    add_later(app, "accept", "Make a package final, without undo", given, choose, kmhost::accept);
    add_verify(app, given, choose);
    add_questions(app, given, choose);
    auto* delta = app.add_subcommand("delta", "A package with only what differs from another");
    delta->add_option("BASE", given.base, "Package file that is installed")->required();
    delta->add_option("NEW", given.newer, "Package file to come to")->required();
    delta->add_option("-o,--output", given.output, "Package file to write")
        ->required()
        ->type_name("FILE");
    delta->callback([&given, choose] {
        choose("delta", true, false, [&given](worker_line&, outcome& result) {
            kmhost::make_delta(given.base, given.newer, given.output, result);
        });
    });
}

} // namespace kmctl
