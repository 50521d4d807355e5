// files_ahead: files written before their turn by a second processor, without a name
// no format
// invariant: whatever fails here is not told: the file is written again in its turn, and fails
// there
#include "files_ahead.h"

#include "data_entry.h"
#include "durable.h"
#include "file_object.h"
#include "package.h"
#include "tree_files.h"

#include <algorithm>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

namespace km {

// Stays open until the last file of it is written, however far the walk has come.
struct files_ahead::directory {
    open_file at;
    // The file system would write the data of a file when it replaces another one, and have the
    // walk wait for that.
    bool starts_writing;
};

namespace {
bool writes_what_replaces(int directory) {
    struct statfs about {};
    return ::fstatfs(directory, &about) == 0 && about.f_type == EXT4_SUPER_MAGIC;
}

} // namespace

void files_ahead::plan(const cm_package& package) {
    planned_for_ = &package;
    directories_.clear();
    std::vector<planned> files;
    each_file(package, [&](const km_file& file) {
        if (file.sequence <= 0 || file.in_base || file.stood_as_described)
            return;
        const std::string& path = file.path_bytes();
        const auto known = directories_.emplace(path.substr(0, path.find_last_of('/')),
                                                static_cast<int>(directories_.size()));
        files.push_back({file.sequence, known.first->second, file.attributes()});
    });
    std::sort(files.begin(), files.end(),
              [](const planned& a, const planned& b) { return a.number < b.number; });
    ::pthread_mutex_lock(&lock_);
    files_.swap(files);
    current_ = -1;
    ::pthread_mutex_unlock(&lock_);
}

bool files_ahead::come_to(const cm_package& package, const place& where, bool replaces) {
    if (planned_for_ != &package)
        plan(package);
    else if (parent_ == where.parent)
        return false;
    parent_ = where.parent;
    const auto known = directories_.find(parent_);
    auto open = std::shared_ptr<directory>(
        new directory{open_file(::fcntl(where.directory, F_DUPFD_CLOEXEC, 0)),
                      replaces && writes_what_replaces(where.directory)});
    ::pthread_mutex_lock(&lock_);
    current_ = known == directories_.end() || !open->at.good() ? -1 : known->second;
    open_.swap(open);
    ::pthread_mutex_unlock(&lock_);
    return true;
}

bool files_ahead::find(const std::string& name, planned& file, std::shared_ptr<directory>& into) {
    const long number = data_entry_number(name.c_str());
    ::pthread_mutex_lock(&lock_);
    const auto same =
        std::lower_bound(files_.begin(), files_.end(), number,
                         [](const planned& one, long wanted) { return one.number < wanted; });
    const bool found = is_possible_ && same != files_.end() && same->number == number &&
                       same->directory == current_;
    if (found) {
        file = *same;
        into = open_;
    }
    ::pthread_mutex_unlock(&lock_);
    return found;
}

bool files_ahead::is_due(const std::string& name) {
    planned file;
    std::shared_ptr<directory> into;
    return find(name, file, into);
}

std::unique_ptr<entry_work::product> files_ahead::work(const std::string& name,
                                                       const std::string& bytes) {
    planned file;
    std::shared_ptr<directory> into;
    if (!find(name, file, into))
        return nullptr;
    auto made = std::make_unique<nameless_file>(::openat(into->at.get(), ".",
                                                         O_WRONLY | O_TMPFILE | O_CLOEXEC,
                                                         mode_while_written(file.attributes)),
                                                file.attributes);
    if (!made->file.good()) {
        ::pthread_mutex_lock(&lock_);
        is_possible_ = false;
        ::pthread_mutex_unlock(&lock_);
        return nullptr;
    }
    if (!write_fully(made->file.get(), bytes.data(), bytes.size()) ||
        set_attributes(made->file.get(), made->given, made->inode))
        return nullptr;
    if (into->starts_writing)
        ::sync_file_range(made->file.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    return made;
}

} // namespace km
