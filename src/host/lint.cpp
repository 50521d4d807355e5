// lint: what is wrong or doubtful in a text definition
// no format
// invariant: nothing is changed
#include "lint.h"

#include "base/msg_supp.h"
#include "definition_file.h"
#include "importer.h"
#include "importer_factory.h"
#include "inspect.h"
#include "library_loader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace kmhost {

namespace {

using lint_definition_t = int (*)(const km::pathname*, const char*, km::spmessage*);

// Null without the library.
lint_definition_t linter() {
    km::importer* library = km::importer_factory::load_importer(km::ustring("spd"));
    if (!library)
        return nullptr;
    km::importer_factory::unload_importer(library);
    return reinterpret_cast<lint_definition_t>(
        km::library_loader::instance()->get_api(km::ustring("lint_definition")));
}

std::string counted(long count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

void tell(const std::string& path, outcome& result) {
    const auto count = [&result](severity level) {
        return std::count_if(result.messages.begin(), result.messages.end(),
                             [level](const message& one) { return one.level == level; });
    };
    const long errors = count(severity::error), warnings = count(severity::warning);
    result.data["file"] = path;
    result.data["errors"] = errors;
    result.data["warnings"] = warnings;
    result.text = errors + warnings
                      ? path + ": " + counted(errors, "error") + ", " + counted(warnings, "warning")
                      : path + " is in order";
    if (errors + warnings) {
        result.word = "failed";
        result.exit = exit_differences;
    }
}

} // namespace

void lint(const std::string& path, const std::string& base, outcome& result) {
    if (::access(path.c_str(), R_OK) != 0) {
        result.fail(errno == ENOENT ? exit_usage : exit_failed, "definition",
                    "The definition " + path + " cannot be read: " + std::strerror(errno) + ".");
        return;
    }
    const lint_definition_t look = linter();
    if (!look) {
        result.fail(exit_failed, "library",
                    "Definitions cannot be read: no library for them can be loaded. The setting "
                    "import_libraries names it.");
        return;
    }
    km::spmessage messages;
    const km::pathname file(path.c_str());
    look(&file, base.c_str(), &messages);
    take_faults(messages, path, result);
    tell(path, result);
}

} // namespace kmhost
