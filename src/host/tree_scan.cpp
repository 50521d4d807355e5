// tree_scan: what a directory holds, as a package can take it
// no format
// invariant: links are not followed
#include "tree_scan.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

bool is_before(const tree_entry& one, const tree_entry& other) {
    return std::lexicographical_compare(one.path.begin(), one.path.end(), other.path.begin(),
                                        other.path.end(), [](unsigned char a, unsigned char b) {
                                            return (a == '/' ? 0 : a + 1) < (b == '/' ? 0 : b + 1);
                                        });
}

bool scan(const fs::path& source, const std::string& below, std::vector<tree_entry>& all,
          outcome& result) {
    std::error_code error;
    fs::directory_iterator names(source / below, error);
    if (error) {
        result.fail(exit_failed, "read",
                    "The directory " + (source / below).string() +
                        " cannot be read: " + error.message() + ".");
        return false;
    }
    for (const auto& one : names) {
        const std::string path = below.empty() ? one.path().filename().string()
                                               : below + "/" + one.path().filename().string();
        if (path.find("$(") != std::string::npos) {
            result.fail(exit_failed, "name",
                        (source / path).string() +
                            ": a name with '$(' would be taken for a variable. "
                            "Rename it.");
            return false;
        }
        struct stat about {};
        if (::lstat(one.path().c_str(), &about) != 0) {
            result.fail(exit_failed, "read",
                        one.path().string() + " cannot be looked at: " + std::strerror(errno) +
                            ".");
            return false;
        }
        const unsigned mode = about.st_mode & 07777;
        if (S_ISDIR(about.st_mode)) {
            all.push_back({path, tree_kind::directory, mode});
            if (!scan(source, path, all, result))
                return false;
        } else if (S_ISREG(about.st_mode)) {
            all.push_back({path, tree_kind::file, mode});
        } else if (S_ISLNK(about.st_mode)) {
            all.push_back({path, tree_kind::link, mode});
        } else {
            result.fail(exit_failed, "special",
                        one.path().string() +
                            " is a socket, a pipe or a device, and cannot be packed.");
            return false;
        }
    }
    return true;
}

} // namespace

bool scan_tree(const std::string& source, std::vector<tree_entry>& all, outcome& result) {
    struct stat about {};
    if (::stat(source.c_str(), &about) != 0 || !S_ISDIR(about.st_mode)) {
        const int error = S_ISDIR(about.st_mode) || !about.st_mode ? errno : ENOTDIR;
        result.fail(error == ENOENT ? exit_not_found : exit_failed, "source",
                    "The directory " + source + " cannot be packed: " + std::strerror(error) + ".");
        return false;
    }
    if (!scan(source, "", all, result))
        return false;
    std::sort(all.begin(), all.end(), is_before);
    return true;
}

} // namespace kmhost
