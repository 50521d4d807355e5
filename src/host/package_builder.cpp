// package_builder: a directory tree as a package file
// format: docs/formats/package-file.md
// invariant: the output is written beside its place and renamed when it is whole
#include "package_builder.h"

#include "directory_object.h"
#include "file_object.h"
#include "link_object.h"
#include "messages.h"
#include "object_commands.h"
#include "package.h"
#include "pack_ahead.h"
#include "pair.h"
#include "room.h"
#include "tree_scan.h"
#include "variable_list.h"
#include "words.h"
#include "write_package.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fnmatch.h>
#include <unistd.h>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

using kind = tree_kind;
using found = tree_entry;

struct counts {
    long directories = 0, files = 0, links = 0;
    unsigned long long bytes = 0;
};

bool is_usage_fault(const build_request& request, outcome& result) {
    const auto refuse = [&](const std::string& why) {
        result.fail(exit_usage, "usage", why);
        return true;
    };
    if (const auto fault = fault_of_name(request.name); !fault.empty())
        return refuse("--name '" + request.name + "': " + fault + ".");
    if (const auto fault = fault_of_version(request.version); !fault.empty())
        return refuse("--version '" + request.version + "': " + fault + ".");
    const std::string& to = request.destination;
    if (to.empty() || (to[0] != '/' && to.compare(0, 2, "$(") != 0))
        return refuse("--to '" + to + "': give an absolute path, or one that begins with $(name).");
    if (("/" + to + "/").find("/../") != std::string::npos)
        return refuse("--to '" + to + "': give a path without '..'.");
    for (const auto& text : request.variables)
        if (text.find('=') == std::string::npos || text[0] == '=')
            return refuse("--set '" + text + "': give NAME=VALUE.");
    return false;
}

std::string trimmed_destination(std::string to) {
    while (to.size() > 1 && to.back() == '/')
        to.pop_back();
    return to;
}

class builder {
  public:
    builder(const build_request& request, outcome& result) : request_(request), result_(result) {}
    void run();

  private:
    void fill();
    void add_objects(kind what, km::cm_composite_command& into);
    km::cm_command* make(const found& one);
    bool is_shared(const std::string& path) const;
    bool write();
    void report();

    const build_request& request_;
    outcome& result_;
    std::vector<found> all_;
    km::cm_package package_;
    km::variable_list variables_;
    km::spmessage messages_;
    counts counts_;
};

bool builder::is_shared(const std::string& path) const {
    return std::any_of(request_.shared.begin(), request_.shared.end(),
                       [&path](const std::string& pattern) {
                           return ::fnmatch(pattern.c_str(), path.c_str(), 0) == 0;
                       });
}

km::cm_command* builder::make(const found& one) {
    km::km_object* object;
    switch (one.what) {
    case kind::directory:
        object = new km::km_directory;
        ++counts_.directories;
        break;
    case kind::file:
        object = new km::km_file;
        ++counts_.files;
        break;
    default:
        object = new km::km_link;
        ++counts_.links;
    }
    const std::string base = trimmed_destination(request_.destination);
    const std::string target =
        one.path.empty() ? base : (base == "/" ? "/" + one.path : base + "/" + one.path);
    object->set_path(km::ustring(target.c_str()));
    object->set_source(one.path.empty() ? request_.source : request_.source + "/" + one.path);
    if (one.what != kind::directory && is_shared(one.path)) {
        object->is_shared = 1;
        object->set_ref_count(1);
    }
    auto* command = one.what == kind::directory ? km::new_add_directory(object)
                    : one.what == kind::file    ? km::new_add_file(object)
                                                : km::new_add_link(object);
    if (request_.per_user)
        command->scope = 2;
    // Who installs a package wants its content, whatever the times say.
    command->replace_if_newer = 1;
    return command;
}

void builder::add_objects(kind what, km::cm_composite_command& into) {
    for (const found& one : all_)
        if (one.what == what)
            into.add(make(one), nullptr);
}

void builder::fill() {
    package_.name = km::ustring(request_.name.c_str());
    package_.version = km::ustring(request_.version.c_str());
    package_.title = km::ustring(request_.title.c_str());
    package_.description = km::ustring(request_.description.c_str());
    package_.creation_time = package_.last_modification_time = std::time(nullptr);
    package_.insert_package_id(km::pair(package_.name, package_.version));
    package_.log_object_list = new km::log_object_list;
    package_.log_object_list->location = km::pathname("$(product_dir)/log");
    package_.messages = &messages_;
    for (const auto& text : request_.variables) {
        const size_t at = text.find('=');
        variables_.set_value(km::ustring(text.substr(0, at).c_str()),
                             km::ustring(text.substr(at + 1).c_str()));
    }
    package_.variables = &variables_;
    auto* tree = new km::cm_composite_command(1);
    package_.add(tree, nullptr);
    if (trimmed_destination(request_.destination) != "/")
        tree->add(make({"", kind::directory}), nullptr);
    add_objects(kind::directory, *tree);
    add_objects(kind::file, *tree);
    add_objects(kind::link, *tree);
}

bool builder::write() {
    km::restart_data_sequence();
    return write_package(request_.output, request_.stored, messages_, result_,
                         [this](km::zipping_channel& zip) {
                             const km::pack_ahead second(package_);
                             return package_.save(&zip);
                         });
}

void builder::report() {
    std::error_code error;
    const auto size = fs::file_size(request_.output, error);
    unsigned long long bytes = 0;
    for (km::list_iterator at(package_.get_children()); at.hasMoreElements();)
        if (auto* tree = dynamic_cast<km::cm_composite_command*>(at.nextElement()))
            for (km::list_iterator in(tree->get_children()); in.hasMoreElements();)
                bytes += static_cast<unsigned long long>(
                    static_cast<km::cm_command*>(in.nextElement())->get_size());
    const package_id id{request_.name, request_.version};
    result_.text = id.text() + ": " + std::to_string(counts_.files) + " files (" +
                   km::in_words(bytes) + "), " + std::to_string(counts_.directories) +
                   " directories, " + std::to_string(counts_.links) + " links, in " +
                   request_.output + " (" + km::in_words(size) + ")";
    result_.package = package_facts{id.name, id.version, "", ""};
    result_.data["file"] = request_.output;
    result_.data["file_size"] = size;
    result_.data["files"] = counts_.files;
    result_.data["directories"] = counts_.directories;
    result_.data["links"] = counts_.links;
    result_.data["bytes"] = bytes;
}

void builder::run() {
    if (!scan_tree(request_.source, all_, result_))
        return;
    fill();
    if (write())
        report();
}

} // namespace

void build_package_file(const build_request& request, outcome& result) {
    if (is_usage_fault(request, result))
        return;
    builder(request, result).run();
}

} // namespace kmhost
