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
#include <map>
#include <sys/vfs.h>

namespace km {

namespace {
bool writes_what_replaces(int directory) {
    struct statfs about {};
    return ::fstatfs(directory, &about) == 0 && about.f_type == EXT4_SUPER_MAGIC;
}

class locked {
  public:
    explicit locked(pthread_mutex_t& lock) : lock_(lock) { ::pthread_mutex_lock(&lock_); }
    ~locked() { ::pthread_mutex_unlock(&lock_); }
    locked(const locked&) = delete;
    locked& operator=(const locked&) = delete;

  private:
    pthread_mutex_t& lock_;
};
} // namespace

std::unique_ptr<nameless_file> write_nameless(int directory, const file_attributes& attributes,
                                              const std::string& bytes) {
    auto made = std::make_unique<nameless_file>(
        ::openat(directory, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, mode_while_written(attributes)),
        attributes);
    if (!made->file.good() || !write_fully(made->file.get(), bytes.data(), bytes.size()) ||
        set_attributes(made->file.get(), made->given, made->inode))
        return nullptr;
    return made;
}

void files_ahead::plan(const cm_package& package) {
    planned_for_ = &package;
    std::map<std::string, std::size_t> known;
    std::vector<planned> files;
    std::vector<std::string> parents;
    each_file(package, [&](const km_file& file) {
        if (file.sequence <= 0 || file.in_base || file.stood_as_described)
            return;
        const std::string& path = file.path_bytes();
        const size_t slash = path.find_last_of('/');
        const auto parent =
            known.emplace(slash ? path.substr(0, slash) : std::string("/"), parents.size());
        if (parent.second)
            parents.push_back(parent.first->first);
        files.push_back({file.sequence, parent.first->second, file.attributes()});
    });
    std::sort(files.begin(), files.end(),
              [](const planned& a, const planned& b) { return a.number < b.number; });
    const locked here(lock_);
    files_.swap(files);
    parents_.swap(parents);
}

bool files_ahead::come_to(const cm_package& package, const place& where, bool replaces) {
    if (planned_for_ != &package)
        plan(package);
    else if (parent_ == where.parent)
        return false;
    parent_ = where.parent;
    const locked here(lock_);
    missing_.clear();
    replaces_ = replaces;
    return true;
}

// Locked.
const files_ahead::planned* files_ahead::find(const std::string& name) const {
    const long number = data_entry_number(name.c_str());
    const auto same =
        std::lower_bound(files_.begin(), files_.end(), number,
                         [](const planned& one, long wanted) { return one.number < wanted; });
    return same != files_.end() && same->number == number ? &*same : nullptr;
}

entry_work::when files_ahead::is_due(const std::string& name) {
    const locked here(lock_);
    if (!is_possible_)
        return when::never;
    if (files_.empty())
        return when::later;
    const planned* file = find(name);
    if (!file)
        return when::never;
    return parents_[file->parent] == missing_ ? when::later : when::now;
}

// False: it is not there. The walk makes a directory before it comes to the files in it.
bool files_ahead::open_parent(const std::string& path, bool replaces) {
    if (!open_.go_to(path))
        return true;
    if (!open_.good() || ::fstat(open_.get(), &about_open_) != 0) {
        open_.close();
        return false;
    }
    starts_writing_ = replaces && writes_what_replaces(open_.get());
    return true;
}

std::unique_ptr<entry_work::product> files_ahead::work(const std::string& name,
                                                       const std::string& bytes) {
    file_attributes attributes;
    std::string parent;
    bool replaces = false;
    {
        const locked here(lock_);
        const planned* file = find(name);
        if (!file)
            return nullptr;
        attributes = file->attributes;
        parent = parents_[file->parent];
        replaces = replaces_;
    }
    if (!open_parent(parent, replaces)) {
        const locked here(lock_);
        missing_ = parent;
        return nullptr;
    }
    auto made = write_nameless(open_.get(), attributes, bytes);
    if (!made) {
        const locked here(lock_);
        is_possible_ = false;
        return nullptr;
    }
    made->made_in = about_open_;
    if (starts_writing_)
        ::sync_file_range(made->file.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    return made;
}

} // namespace km
