// definition_file: text definitions, read and written through the library of their extension
// format: docs/DEFINITIONS.md
// invariant: a definition with a fault gives no package
#include "definition_file.h"

#include "exporter.h"
#include "importer.h"
#include "importer_factory.h"
#include "library_loader.h"
#include "variable_list.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace kmhost {

namespace {

constexpr char extension[] = "spd";

void no_library(const char* what, outcome& result) {
    result.fail(exit_failed, "library",
                std::string("Definitions cannot be ") + what +
                    ": no library for them can be loaded. The setting import_libraries names it.");
}

} // namespace

void take_faults(const km::spmessage& from, const std::string& path, outcome& result) {
    for (int i = 0; i < from.get_count(); ++i) {
        message one{from.id_of(i), severity::error, from.text_of(i)};
        if (one.text.starts_with("W "))
            one.level = severity::warning;
        if (one.text.starts_with("E ") || one.text.starts_with("W "))
            one.text.erase(0, 2);
        while (!one.text.empty() && one.text.back() == '\n')
            one.text.pop_back();
        if (const size_t line_end = one.text.find('\n'); line_end != std::string::npos) {
            one.shown = one.text.substr(line_end + 1);
            one.text.erase(line_end);
        }
        const size_t colon = one.text.find(": ", path.size());
        if (one.text.starts_with(path) && colon != std::string::npos) {
            one.place = one.text.substr(0, colon);
            one.text.erase(0, colon + 2);
        }
        result.messages.push_back(std::move(one));
    }
}

std::unique_ptr<km::cm_package> read_definition(const std::string& path, km::spmessage& messages,
                                                outcome& result) {
    struct stat about {};
    if (::stat(path.c_str(), &about) != 0) {
        result.fail(errno == ENOENT ? exit_usage : exit_failed, "definition",
                    "The definition " + path + " cannot be read: " + std::strerror(errno) + ".");
        return nullptr;
    }
    km::importer* from = km::importer_factory::load_importer(km::ustring(extension));
    if (!from) {
        no_library("read", result);
        return nullptr;
    }
    from->messages = &messages;
    km::cm_package* read = nullptr;
    const int good = from->load(km::pathname(path.c_str()), read);
    from->messages = nullptr;
    km::importer_factory::unload_importer(from);
    std::unique_ptr<km::cm_package> package(read);
    if (good && package)
        return package;
    take_faults(messages, path, result);
    const int faults = messages.get_count();
    constexpr char no_rules[] = "ZNPSE0024"; // the rules file of the product is not there
    if (faults > 0 && messages.id_of(0) == no_rules) {
        result.fail(exit_usage, "rules", "There are no rules to read definitions by.");
        return nullptr;
    }
    result.fail(exit_invalid, "definition",
                path + ": " + std::to_string(faults) + (faults == 1 ? " fault." : " faults.") +
                    " Nothing was made.");
    return nullptr;
}

bool write_definition(const km::cm_package& package, const std::string& path, outcome& result) {
    km::exporter* to = km::importer_factory::load_exporter(km::ustring(extension));
    void* asked = km::library_loader::instance()->get_api(km::ustring("exporter_wrote_all"));
    if (!to || !asked || !to->open(km::pathname(path.c_str()))) {
        no_library("written", result);
        delete to;
        return false;
    }
    package.export_(*to);
    to->close();
    const int error = errno;
    const bool good = reinterpret_cast<int (*)(const km::exporter*)>(asked)(to) != 0;
    km::importer_factory::unload_exporter(to);
    if (!good)
        result.fail(exit_failed, "output",
                    path + " cannot be written: " + std::strerror(error) + ".");
    return good;
}

bool set_defaults(km::cm_package& package, const std::vector<std::string>& variables,
                  outcome& result) {
    km::variable_list* defaults = package.variables ? package.variables->get_defaults() : nullptr;
    for (const auto& text : variables) {
        const size_t at = text.find('=');
        if (!defaults || at == std::string::npos || at == 0) {
            result.fail(exit_usage, "usage", "--set '" + text + "': give NAME=VALUE.");
            return false;
        }
        defaults->set_value(km::ustring(text.substr(0, at).c_str()),
                            km::ustring(text.substr(at + 1).c_str()));
    }
    return true;
}

} // namespace kmhost
