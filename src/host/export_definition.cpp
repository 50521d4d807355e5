// export_definition: the text definition of a package file or of an installed package
// format: docs/DEFINITIONS.md
// invariant: data are written below the given directory only
#include "export_definition.h"

#include "catalog_store.h"
#include "data_entry.h"
#include "definition_file.h"
#include "file_object.h"
#include "lookup.h"
#include "object_command.h"
#include "package_file.h"
#include "sp_object.h"
#include "tree_walk.h"
#include "upgrade.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <vector>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

class data_writer {
  public:
    data_writer(const export_request& request, outcome& result)
        : directory_(request.files), beside_(fs::absolute(request.output).parent_path()),
          result_(result) {}

    bool make_directory() {
        std::error_code error;
        fs::create_directories(directory_, error);
        const bool empty = !error && fs::is_empty(directory_, error);
        if (error || !empty)
            result_.fail(exit_failed, "output",
                         "The directory " + directory_.string() + " cannot take the data: " +
                             (error ? error.message() : "it is not empty") + ".");
        return !error && empty;
    }

    // False: `result` says why.
    bool write(km::km_file& file, km::unzipping_channel& reader) {
        const fs::path place = place_of(file.path_bytes());
        const auto found = km::align(reader, file.sequence);
        if (found != km::alignment::mine)
            return refuse(place, "its data are not in the package");
        errno = 0;
        if (!reader.copy_file(km::pathname(place.c_str())))
            return refuse(place, errno ? std::strerror(errno) : "its data are damaged");
        set_time(file, place);
        file.source_text = km::ustring(fs::relative(place, beside_).c_str());
        return true;
    }

  private:
    bool refuse(const fs::path& place, const std::string& why) {
        result_.fail(exit_failed, "output", place.string() + " cannot be written: " + why + ".");
        return false;
    }

    // Below the directory, whatever the package says; each file at a place of its own.
    fs::path place_of(const std::string& path) {
        fs::path place = fs::absolute(directory_);
        for (const auto& part : fs::path(without_references(path)).relative_path())
            place /= part == ".." || part == "." ? fs::path("_") : part;
        const std::string wanted = place.string();
        for (int i = 2; !taken_.insert(place.string()).second; ++i)
            place = wanted + "~" + std::to_string(i);
        return place;
    }

    // "$(dir)/x" as "dir/x": in the definition a reference would be resolved.
    static std::string without_references(std::string path) {
        for (size_t at; (at = path.find("$(")) != std::string::npos;) {
            path.erase(at, 2);
            if (const size_t end = path.find(')', at); end != std::string::npos)
                path.erase(end, 1);
        }
        return "/" + path;
    }

    static void set_time(const km::km_file& file, const fs::path& place) {
        intmax_t seconds = 0;
        long fraction = 0;
        if (std::sscanf(file.mtime.mbcs_str(), "%" SCNdMAX ".%9ld", &seconds, &fraction) < 1)
            return;
        const timespec times[2] = {{0, UTIME_OMIT}, {seconds, fraction}};
        ::utimensat(AT_FDCWD, place.c_str(), times, 0);
    }

    fs::path directory_;
    fs::path beside_;
    outcome& result_;
    std::set<std::string> taken_;
};

bool write_data(km::cm_package& package, km::unzipping_channel& reader,
                const export_request& request, outcome& result) {
    data_writer writer(request, result);
    if (!writer.make_directory())
        return false;
    bool good = true;
    each_placed_object(package, [&](km::km_object& object) {
        auto* file = dynamic_cast<km::km_file*>(&object);
        if (good && file && file->sequence > 0)
            good = writer.write(*file, reader);
    });
    return good;
}

void report(const km::cm_package& package, const export_request& request, outcome& result) {
    const package_id id{package.name.mbcs_str(), package.version.mbcs_str()};
    result.package = package_facts{id.name, id.version, "", ""};
    result.data["file"] = request.output;
    result.text = "The definition of " + id.text() + " is in " + request.output;
    if (!request.files.empty())
        result.text += ", its data are in " + request.files;
}

void export_file(const export_request& request, outcome& result) {
    km::spmessage messages;
    opened_package opened;
    if (!open_package(request.target, {}, messages, opened, result, 0))
        return;
    if (!request.files.empty() && !write_data(*opened.package, *opened.reader, request, result))
        return;
    if (write_definition(*opened.package, request.output, result))
        report(*opened.package, request, result);
}

// What an upgrade put into the tree, to take older versions out, is none of the package's own.
void drop_what_an_upgrade_added(km::cm_package& package) {
    std::vector<km::cm_command*> added;
    for (km::list_iterator all(package.get_children()); all.hasMoreElements();) {
        auto* command = static_cast<km::cm_command*>(all.nextElement());
        const auto* program = dynamic_cast<const km::program_command*>(command);
        if ((program && !program->acts_for.empty()) ||
            (dynamic_cast<km::cm_composite_command*>(command) &&
             command->caption == km::ustring(upgrade_caption)))
            added.push_back(command);
    }
    for (auto* one : added)
        package.get_children().remove(one);
}

void export_installed(const export_request& request, outcome& result) {
    catalog_store store;
    package_id id;
    if (!store.open(access_kind::read, 0, result) ||
        !find_package(store.catalog(), request.target, id, result))
        return;
    if (!request.files.empty()) {
        result.fail(exit_usage, "usage",
                    "The data of an installed package are not kept: --files needs a package file.");
        return;
    }
    const std::string profile = store.find(id.name, id.version)->profile_name.mbcs_str();
    km::spmessage messages;
    km::sp_object reader(&messages);
    km::cm_package* read = nullptr;
    reader.decode(read, km::pathname(profile.c_str()), 0, km::sp_object::either);
    const std::unique_ptr<km::cm_package> package(read);
    if (!package)
        return result.fail(exit_failed, "profile", "The profile " + profile + " cannot be read.");
    drop_what_an_upgrade_added(*package);
    if (write_definition(*package, request.output, result))
        report(*package, request, result);
}

} // namespace

void export_definition(const export_request& request, outcome& result) {
    struct stat about {};
    const bool is_file = ::stat(request.target.c_str(), &about) == 0 && !S_ISDIR(about.st_mode);
    if (is_file || request.target.find('/') != std::string::npos)
        export_file(request, result);
    else
        export_installed(request, result);
}

} // namespace kmhost
