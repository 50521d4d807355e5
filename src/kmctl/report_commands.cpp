// report_commands: the commands on reports and notices
// no format
// invariant: a removal names what it removes
#include "report_commands.h"

#include "report_delivery.h"
#include "report_words.h"

namespace kmctl {

using kmhost::outcome;
using kmhost::worker_line;

namespace {

void add_selection(CLI::App& command, kmhost::report_selection& selection) {
    command.add_option("--distribution", selection.distributions, "Of a distribution only")
        ->type_name("ID")
        ->allow_extra_args(false);
    command.add_option("--target", selection.targets, "Of a machine only")
        ->type_name("NAME")
        ->allow_extra_args(false);
}

void add_list(CLI::App& report, report_arguments& given, const choose_command& choose) {
    auto* list = report.add_subcommand("list", "Reports that wait to be delivered");
    auto& selection = given.selection;
    add_selection(*list, selection);
    list->add_flag("--undelivered", selection.only_undelivered,
                   "Not those that only wait to be cleared away");
    list->add_option("--format", selection.form, "Template of a line")
        ->type_name("TEMPLATE")
        ->check(kmhost::fault_of_template);
    list->callback([&selection, choose] {
        choose("report", true, true, [&selection](worker_line&, outcome& result) {
            kmhost::list_reports(selection, result);
        });
    });
    auto* show = report.add_subcommand("show", "All that one report tells");
    show->add_option("ID", given.id, "Id of the report")->required();
    show->callback([&given, choose] {
        choose("report", true, true,
               [&given](worker_line&, outcome& result) { kmhost::show_report(given.id, result); });
    });
}

void add_remove(CLI::App& report, report_arguments& given, const choose_command& choose) {
    auto* remove =
        report.add_subcommand("remove", "Give reports up: no channel gets them any more");
    auto& selection = given.selection;
    remove->add_option("ID", selection.id, "Id of one report");
    add_selection(*remove, selection);
    remove->add_flag("--all", selection.all, "All reports that wait");
    remove->callback([&given, &selection, choose] {
        if (selection.id.empty() && selection.distributions.empty() && selection.targets.empty() &&
            !selection.all)
            throw CLI::RequiredError("ID, --distribution, --target or --all");
        choose("report", false, false, [&given](worker_line&, outcome& result) {
            kmhost::remove_reports(given.selection, given.wait_seconds, result);
        });
    });
}

} // namespace

void add_report_commands(CLI::App& app, report_arguments& given, const choose_command& choose) {
    auto* report = app.add_subcommand("report", "Reports of what was done, and their delivery");
    report->require_subcommand(1);
    add_list(*report, given, choose);
    report->add_subcommand("deliver", "Deliver what waits")->callback([&given, choose] {
        choose("report", false, false, [&given](worker_line& line, outcome& result) {
            kmhost::deliver_reports(given.wait_seconds, line, result);
        });
    });
    add_remove(*report, given, choose);
    auto* notices = app.add_subcommand("notices", "Messages for the people on this machine");
    notices->add_option("ID", given.id, "With --clear: this one only");
    notices->add_flag("--clear", given.clears, "Take them away");
    notices->callback([&given, choose] {
        if (!given.id.empty() && !given.clears)
            throw CLI::ValidationError("An ID goes with --clear.");
        choose("notices", !given.clears, !given.clears, [&given](worker_line&, outcome& result) {
            if (given.clears)
                kmhost::clear_notices(given.id, result);
            else
                kmhost::show_notices(result);
        });
    });
}

} // namespace kmctl
