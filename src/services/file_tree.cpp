// file_tree: listing, copying and removing of trees
// no format
// invariant: a symbolic link counts as no directory, so nothing behind it is ever removed
#include "file.h"

#include "file_info.h"
#include "trclog.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

namespace {

bool is_dot_name(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

file_info* info_of(const pathname& directory, const char* name) {
    auto* info = new file_info;
    std::snprintf(info->name, sizeof info->name, "%s", name);
    file entry(directory + ustring(name));
    struct stat about {};
    if (::stat(entry.get_path().mbcs_str(), &about) == 0) {
        info->modification_time = about.st_mtime;
        info->size = about.st_size;
        info->mode = about.st_mode & ~0xA000UL;
    } else {
        KM_TRACE(trace_warning, "common", "Stat failed with errno = %d", errno);
        KM_TRACE(trace_warning, "common", "message = '%s' ...", std::strerror(errno));
    }
    if (entry.is_link())
        info->mode |= 0xA000;
    return info;
}

} // namespace

int file::list(vector& names, const ustring& pattern) {
    KM_TRACE_FUNCTION("file::list");
    DIR* open = ::opendir(path_.mbcs_str());
    if (!open) {
        keep(errno);
        KM_TRACE(trace_error, "common", "Not a directory..");
        return 0;
    }
    while (const dirent* entry = ::readdir(open)) {
        if (is_dot_name(entry->d_name))
            continue;
        ustring name(entry->d_name);
        if (name.matches_pattern(pattern, 0))
            names.push_back(new ustring(name));
    }
    return ::closedir(open) == 0;
}

int file::list_file_info(vector& infos, const ustring& pattern) {
    KM_TRACE_FUNCTION("file::list_file_info");
    if (!is_directory()) {
        KM_TRACE(trace_warning, "common", "%s is not a directory", path_.mbcs_str());
        return 0;
    }
    DIR* open = ::opendir(path_.mbcs_str());
    if (!open) {
        keep(errno);
        KM_TRACE(trace_error, "common", "Can't open directory %s. errno = %d", path_.mbcs_str(),
                 error_);
        return 0;
    }
    while (const dirent* entry = ::readdir(open))
        if (!is_dot_name(entry->d_name) && ustring(entry->d_name).matches_pattern(pattern, 0))
            infos.push_back(info_of(path_, entry->d_name));
    return ::closedir(open) == 0;
}

int file::remove_directory(int recursive) {
    if (recursive) {
        vector names;
        if (!list(names, ustring(u"*")))
            KM_TRACE(trace_warning, "common", "Cannot create list..");
        for (int i = 0; i < names.size(); ++i)
            file(path_ + *names.at<ustring>(i)).remove(1);
    }
    if (::rmdir(path_.mbcs_str()) == 0)
        return 1;
    keep(errno);
    KM_TRACE(trace_warning, "common", "Rmdir failed..");
    return 0;
}

int file::remove(int recursive) {
    KM_TRACE_FUNCTION("file::remove");
    const int link = is_link();
    if (!link && !exists()) {
        KM_TRACE(trace_info, "common", "Does not exist..");
        return 1;
    }
    if (!link && is_directory())
        return remove_directory(recursive);
    if (std::remove(path_.mbcs_str()) == 0)
        return 1;
    keep(errno);
    KM_TRACE(trace_warning, "common", "Remove failed..");
    return 0;
}

int file::remove(const ustring& pattern, int recursive) {
    KM_TRACE_FUNCTION("file::remove");
    if (is_link() || !exists() || !is_directory())
        return 1;
    vector names;
    int done = list(names, ustring(u"*"));
    for (int i = 0; done && i < names.size(); ++i) {
        const ustring& name = *names.at<ustring>(i);
        file child(path_ + name);
        const bool matches = name.matches_pattern(pattern, 0);
        const bool directory = !child.is_link() && child.is_directory();
        if (!directory) {
            if (matches && !child.remove(0))
                done = keep(child.get_error());
        } else if (recursive) {
            done = child.remove(pattern, 1);
            ::rmdir(child.get_path().mbcs_str());
        } else if (matches) {
            ::rmdir(child.get_path().mbcs_str());
        }
    }
    ::rmdir(path_.mbcs_str());
    return done;
}

} // namespace km
