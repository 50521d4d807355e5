// definition_commands: the commands that make packages and definitions
// no format
// invariant: a wrong combination of options is told before anything is read
#include "definition_commands.h"

#include "lint.h"

#include <sys/stat.h>

namespace kmctl {

namespace {

bool is_regular_file(const std::string& path) {
    struct stat about {};
    return ::stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
}

// By its name; or a file of another name, where nothing says that a directory was meant.
bool is_definition(const kmhost::build_request& build) {
    const bool of_a_tree =
        !build.name.empty() || !build.version.empty() || !build.destination.empty();
    return build.source.ends_with(".spd") || (!of_a_tree && is_regular_file(build.source));
}

// A definition tells itself what options tell of a tree.
void refuse_wrong_options(const definition_arguments& given) {
    const auto& build = given.build;
    const std::pair<const char*, bool> of_a_tree[] = {{"--name", !build.name.empty()},
                                                      {"--version", !build.version.empty()},
                                                      {"--to", !build.destination.empty()}};
    const bool definition = is_definition(build);
    for (const auto& [name, is_given] : of_a_tree)
        if (is_given == definition)
            throw CLI::ValidationError(
                definition ? std::string(name) + " is told by the definition " + build.source
                           : std::string(name) + " is required to pack a directory");
    if (definition && (!build.title.empty() || !build.description.empty() ||
                       !build.shared.empty() || build.per_user))
        throw CLI::ValidationError("--title, --description, --shared and --per-user are for "
                                   "directories: the "
                                   "definition " +
                                   build.source + " tells them");
    if (!definition && !given.base.empty())
        throw CLI::ValidationError("--base is for definitions");
}

void run_build(const definition_arguments& given, kmhost::outcome& result) {
    const auto& build = given.build;
    if (is_definition(build))
        kmhost::build_from_definition(
            {build.source, given.base, build.output, build.variables, build.stored}, result);
    else
        kmhost::build_package_file(build, result);
}

void add_build(CLI::App& app, definition_arguments& given, const definition_choice& choose) {
    auto* one = app.add_subcommand("build", "Pack a directory tree, or what a definition tells");
    auto& build = given.build;
    one->add_option("SOURCE", build.source, "Directory, or definition (FILE.spd)")->required();
    one->add_option("--name", build.name, "Name of the package (of a directory)");
    one->add_option("--version", build.version, "Version of the package (of a directory)");
    one->add_option("--to", build.destination,
                    "Where the content of a directory goes; may hold $(name)")
        ->type_name("DEST");
    one->add_option("-o,--output", build.output, "Package file to write")
        ->required()
        ->type_name("FILE");
    one->add_option("--base", given.base,
                    "Where a definition's sources are (the definition's directory)")
        ->type_name("DIR");
    one->add_option("--title", build.title, "Title");
    one->add_option("--description", build.description, "Description");
    one->add_option("--set", build.variables, "Default of a variable")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    one->add_option("--shared", build.shared, "Files that other packages may share")
        ->type_name("PATTERN")
        ->allow_extra_args(false);
    one->add_flag("--stored", build.stored, "Do not compress the data");
    one->add_flag("--per-user", build.per_user, "A package for --user (of a directory)");
    one->callback([&given, choose] {
        refuse_wrong_options(given);
        choose("build", false, [&given](kmhost::worker_line&, kmhost::outcome& result) {
            run_build(given, result);
        });
    });
}

void add_init(CLI::App& app, definition_arguments& given, const definition_choice& choose) {
    auto* one = app.add_subcommand("init", "Write a first definition for a directory tree");
    auto& init = given.init;
    one->add_option("DIR", init.source, "Directory to describe")->required();
    one->add_option("-o,--output", init.output, "Definition to write (the directory's name, .spd)")
        ->type_name("FILE");
    one->add_option("--prefix", init.prefix, "Where the content goes (/opt and the name)")
        ->type_name("DEST");
    one->add_flag("--force", init.force, "Replace a definition that is there");
    one->callback([&given, choose] {
        choose("init", false, [&given](kmhost::worker_line&, kmhost::outcome& result) {
            kmhost::init_definition(given.init, result);
        });
    });
}

void add_lint(CLI::App& app, definition_arguments& given, const definition_choice& choose) {
    auto* one = app.add_subcommand("lint", "Look for faults of a definition");
    one->add_option("FILE", given.file, "Definition")->required();
    one->add_option("--base", given.lint_base, "Where relative sources are")->type_name("DIR");
    one->callback([&given, choose] {
        choose("lint", false, [&given](kmhost::worker_line&, kmhost::outcome& result) {
            kmhost::lint(given.file, given.lint_base, result);
        });
    });
}

void add_export(CLI::App& app, definition_arguments& given, const definition_choice& choose) {
    auto* one = app.add_subcommand("export", "Write a package's definition");
    auto& to_text = given.to_text;
    one->add_option("PACKAGE", to_text.target, "Package file, or NAME[^VERSION]")->required();
    one->add_option("-o,--output", to_text.output, "Definition to write")
        ->required()
        ->type_name("FILE");
    one->add_option("--files", to_text.files, "Directory that gets the data, made anew")
        ->type_name("DIR");
    one->callback([&given, choose] {
        choose("export", true, [&given](kmhost::worker_line&, kmhost::outcome& result) {
            kmhost::export_definition(given.to_text, result);
        });
    });
}

} // namespace

void add_definition_commands(CLI::App& app, definition_arguments& given,
                             const definition_choice& choose) {
    add_build(app, given, choose);
    add_init(app, given, choose);
    add_lint(app, given, choose);
    add_export(app, given, choose);
}

} // namespace kmctl
