// definition_builder: a package file out of a text definition
// format: docs/DEFINITIONS.md
// invariant: the output is written beside its place and renamed when it is whole
#include "definition_builder.h"

#include "data_entry.h"
#include "definition_file.h"
#include "file_object.h"
#include "log_objects.h"
#include "object_command.h"
#include "pack_ahead.h"
#include "pair.h"
#include "room.h"
#include "tree_walk.h"
#include "variable_list.h"
#include "words.h"
#include "write_package.h"

#include <filesystem>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

class builder {
  public:
    builder(const definition_request& request, outcome& result)
        : request_(request), result_(result) {}
    void run();

  private:
    km::ustring resolved(const km::ustring& text);
    bool name_package();
    void find_sources();
    void report();

    const definition_request& request_;
    outcome& result_;
    km::spmessage messages_;
    std::unique_ptr<km::cm_package> package_;
};

km::ustring builder::resolved(const km::ustring& text) {
    km::ustring out = text;
    if (package_->variables)
        package_->variables->substitute_variables(out);
    return out;
}

// The name stands in every catalog: it cannot wait for the values of a machine.
bool builder::name_package() {
    km::cm_package& package = *package_;
    const km::pair before(package.name, package.version);
    const std::string written[] = {package.name.mbcs_str(), package.version.mbcs_str()};
    package.name = resolved(package.name);
    package.version = resolved(package.version);
    package.title = resolved(package.title);
    if (const int own = package.nested_packages.index_of(before); own >= 0)
        *package.nested_packages.at<km::pair>(own) = km::pair(package.name, package.version);
    const std::string name = package.name.mbcs_str(), version = package.version.mbcs_str();
    const auto refuse = [&](const std::string& what, const std::string& fault) {
        result_.fail(exit_invalid, "definition",
                     request_.file + ": the " + what + ": " + fault + ".");
        return false;
    };
    for (const auto& [text, shown] : {std::pair(name, written[0]), std::pair(version, written[1])})
        if (text.find("$(") != std::string::npos)
            return refuse("'" + shown + "' that names the package",
                          "a variable in it has no value here, or refers to itself; --set "
                          "NAME=VALUE gives one");
    if (const auto fault = fault_of_name(name); !fault.empty())
        return refuse("name '" + name + "'", fault);
    if (const auto fault = fault_of_version(version); !fault.empty())
        return refuse("version '" + version + "'", fault);
    return true;
}

void builder::find_sources() {
    const fs::path base =
        request_.base.empty() ? fs::path(request_.file).parent_path() : fs::path(request_.base);
    each_placed_object(*package_, [&](km::km_object& object) {
        if (!object.source_text.empty())
            object.set_source((base / resolved(object.source_text).mbcs_str()).string());
    });
}

void builder::report() {
    std::error_code error;
    const auto size = fs::file_size(request_.output, error);
    unsigned long long bytes = 0;
    long commands = 0;
    each_leaf(*package_, [&](km::cm_command& command) {
        ++commands;
        bytes += static_cast<unsigned long long>(command.get_size());
    });
    const package_id id{package_->name.mbcs_str(), package_->version.mbcs_str()};
    result_.package = package_facts{id.name, id.version, "", ""};
    result_.data["file"] = request_.output;
    result_.data["file_size"] = size;
    result_.data["commands"] = commands;
    result_.data["bytes"] = bytes;
    result_.text = id.text() + ": " + std::to_string(commands) + " commands, data of " +
                   km::in_words(bytes) + ", in " + request_.output + " (" + km::in_words(size) +
                   ")";
}

void builder::run() {
    package_ = read_definition(request_.file, messages_, result_);
    if (!package_ || !set_defaults(*package_, request_.variables, result_) || !name_package())
        return;
    find_sources();
    if (!package_->log_object_list) {
        package_->log_object_list = new km::log_object_list;
        package_->log_object_list->location = km::pathname("$(product_dir)/log");
    }
    package_->messages = &messages_;
    km::restart_data_sequence();
    if (write_package(request_.output, request_.stored, messages_, result_,
                      [this](km::zipping_channel& zip) {
                          const km::pack_ahead second(*package_);
                          return package_->save(&zip);
                      }))
        report();
}

} // namespace

void build_from_definition(const definition_request& request, outcome& result) {
    builder(request, result).run();
}

} // namespace kmhost
