// program_files: the files that a program of a package brings with it
// format: docs/formats/service-control.md
// invariant: a directory is noted as the package's before it is made
#include "program_files.h"

#include "base_configuration.h"
#include "file_object.h"
#include "object_command.h"
#include "object_messages.h"
#include "package.h"
#include "service_control.h"
#include "text_file.h"

#include <cerrno>
#include <set>

namespace km {

namespace {

template <class Visit> void each_file(cm_composite_command* tree, const Visit& visit) {
    if (!tree)
        return;
    for (list_iterator all(tree->get_children()); all.hasMoreElements();) {
        auto* add = dynamic_cast<cm_add_object*>(all.nextElement());
        if (auto* file = add ? dynamic_cast<km_file*>(add->object) : nullptr)
            visit(*file);
    }
}

bool stays_below(const std::string& path) {
    const std::string framed = "/" + path + "/";
    return framed.find("//") == std::string::npos && framed.find("/./") == std::string::npos &&
           framed.find("/../") == std::string::npos && framed.find("$(") == std::string::npos;
}

std::string package_directory(const std::string& name, const std::string& version) {
    const std::string work = base_configuration().get_var(u"working_dir").mbcs_str();
    const std::string& root = get_target_root();
    const std::string below = "corequisites/" + name + "^" + version;
    if (root.empty())
        return work + "/" + below;
    if (work.compare(0, root.size() + 1, root + "/") == 0)
        return work.substr(root.size()) + "/" + below;
    return "/.km-corequisites." + name + "^" + version;
}

// Directories that anybody may enter: a program may run as somebody else.
bool make_directories_in_root(const std::string& path) {
    int error = 0;
    for (const auto& one : missing_parents(path, error))
        if (!make_directory(one, 0755))
            return false;
    errno = error;
    return !error;
}

cm_result put_one(const km_file& file, cm_package& package, const std::string& directory) {
    const std::unique_ptr<km_file> placed(static_cast<km_file*>(file.clone()));
    const std::string path = directory + "/" + file.path_bytes();
    placed->set_path(ustring(path.c_str()));
    placed->package = &package;
    if (!make_directories_in_root(path)) {
        tell_errno(&package, "make the directory of", path, errno);
        placed->skip_data();
        return cm_command::failure;
    }
    return placed->is_identical(p_do) ? placed->skip_data() : placed->add(p_do);
}

pathname control_file() {
    pathname path(base_configuration().get_var(u"working_dir"));
    path += ustring(u"service.ctl");
    return path;
}

} // namespace

bool program_files::brings(const std::string& path) const {
    bool found = false;
    each_file(tree(), [&](km_file& file) { found |= file.path_bytes() == path; });
    return found;
}

long program_files::size() const {
    long bytes = 0;
    each_file(tree(), [&bytes](km_file& file) { bytes += file.get_size(); });
    return bytes;
}

std::string program_files::refused_path() const {
    std::set<std::string> seen;
    std::string refused;
    each_file(tree(), [&](km_file& file) {
        const std::string& path = file.path_bytes();
        if (refused.empty() && (!stays_below(path) || !seen.insert(path).second))
            refused = path;
    });
    return refused;
}

cm_result program_files::unpack(cm_package& package, const std::string& directory) const {
    ustring name, version;
    set_package_name_and_version(package, name, version);
    const std::string of_package = directory.substr(0, directory.find_last_of('/'));
    cm_result done = cm_command::success;
    if (const auto refused = refused_path(); !refused.empty()) { // out of a hostile package
        tell(&package, om_undefined, refused);
        done = cm_command::failure;
    } else if (!note_private_directory(name.mbcs_str(), version.mbcs_str(),
                                       get_target_root() + of_package)) {
        tell_errno(&package, "note the directory", of_package, errno);
        done = cm_command::failure;
    }
    each_file(tree(), [&](km_file& file) {
        if (done == cm_command::success_retry || done == cm_command::fatal_failure)
            return;
        const auto answer =
            done == cm_command::success ? put_one(file, package, directory) : file.skip_data();
        if (answer != cm_command::success)
            done = answer;
    });
    return done;
}

std::string program_directory(const std::string& name, const std::string& version, int index) {
    return package_directory(name, version) + "/" + std::to_string(index);
}

namespace {
ustring front_of(const std::string& name, const std::string& version) {
    return ustring((name + " " + version + " :: ").c_str());
}

bool begins(const ustring& line, const ustring& front) {
    return line.substr(0, front.length()) == front;
}
} // namespace

std::vector<std::string> private_directories_of(const std::string& name,
                                                const std::string& version) {
    std::vector<std::string> all;
    text_file lines(control_file());
    const ustring front = front_of(name, version);
    if (lines.read(1))
        for (long i = 0; i < lines.line_count(); ++i)
            if (begins(lines[i].get_text(), front))
                all.emplace_back(lines[i].get_text().substr(front.length()).mbcs_str());
    return all;
}

int note_private_directory(const std::string& name, const std::string& version,
                           const std::string& directory) {
    text_file lines(control_file());
    const ustring line = front_of(name, version) + ustring(directory.c_str());
    if (!lines.read(1))
        return 0;
    for (long i = 0; i < lines.line_count(); ++i)
        if (lines[i].get_text() == line)
            return 1;
    return lines.add_line(line) && lines.commit_changes();
}

int forget_private_directories(const std::string& name, const std::string& version) {
    text_file lines(control_file());
    const ustring front = front_of(name, version);
    if (!lines.read(1))
        return 0;
    for (long i = lines.line_count(); i-- > 0;)
        if (begins(lines[i].get_text(), front) && !lines.remove_line_at_index(i))
            return 0;
    return lines.commit_changes();
}

int sweep_private_directories(
    const std::function<bool(const std::string&, const std::string&)>& is_known) {
    text_file lines(control_file());
    if (!lines.read(1))
        return 0;
    int good = 1;
    for (long i = 0; i < lines.line_count(); ++i) {
        const std::string line = lines[i].get_text().mbcs_str();
        const size_t blank = line.find(' ');
        const size_t mark = blank == std::string::npos ? blank : line.find(" :: ", blank + 1);
        if (mark == std::string::npos)
            continue;
        const std::string name = line.substr(0, blank);
        const std::string version = line.substr(blank + 1, mark - blank - 1);
        const bool is_ours =
            line.substr(mark + 4) == get_target_root() + package_directory(name, version);
        if (is_ours && !is_known(name, version))
            good &= cleanup_backup(ustring(name.c_str()), ustring(version.c_str())) ==
                    cm_command::success;
    }
    return good;
}

} // namespace km
