// files_ahead: files written before their turn by a second processor, without a name
// no format
// invariant: whatever fails here is not told: the file is written again in its turn, and fails
// there
#include "files_ahead.h"

#include "data_entry.h"
#include "durable.h"
#include "file_object.h"
#include "object_command.h"
#include "package.h"

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace km {

nameless_file::~nameless_file() {
    if (descriptor >= 0)
        ::close(descriptor);
}

// Stays open until the last file of it is written, however far the walk has come.
class files_ahead::directory {
  public:
    directory(int of, bool starts_writing)
        : starts_writing(starts_writing), descriptor_(::fcntl(of, F_DUPFD_CLOEXEC, 0)) {}
    ~directory() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    directory(const directory&) = delete;
    directory& operator=(const directory&) = delete;
    int get() const { return descriptor_; }
    // The file system would write the data of a file when it replaces another one, and have the
    // walk wait for that.
    const bool starts_writing;

  private:
    int descriptor_;
};

namespace {
bool writes_what_replaces(int directory) {
    struct statfs about {};
    return ::fstatfs(directory, &about) == 0 && about.f_type == EXT4_SUPER_MAGIC;
}

void each_file(const cm_composite_command& tree, const std::function<void(const km_file&)>& act) {
    for (list_iterator at(tree.get_children()); at.hasMoreElements();) {
        const auto* command = at.nextElement();
        if (const auto* inner = dynamic_cast<const cm_composite_command*>(command))
            each_file(*inner, act);
        else if (const auto* add = dynamic_cast<const cm_add_object*>(command))
            if (const auto* file = dynamic_cast<const km_file*>(add->object))
                act(*file);
    }
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
    auto open = std::make_shared<directory>(where.directory,
                                            replaces && writes_what_replaces(where.directory));
    ::pthread_mutex_lock(&lock_);
    current_ = known == directories_.end() || open->get() < 0 ? -1 : known->second;
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
    auto made = std::make_unique<nameless_file>();
    made->given = file.attributes;
    made->descriptor = ::openat(into->get(), ".", O_WRONLY | O_TMPFILE | O_CLOEXEC,
                                mode_while_written(file.attributes));
    if (made->descriptor < 0) {
        ::pthread_mutex_lock(&lock_);
        is_possible_ = false;
        ::pthread_mutex_unlock(&lock_);
        return nullptr;
    }
    if (!write_fully(made->descriptor, bytes.data(), bytes.size()) ||
        set_attributes(made->descriptor, made->given, made->inode))
        return nullptr;
    if (into->starts_writing)
        ::sync_file_range(made->descriptor, 0, 0, SYNC_FILE_RANGE_WRITE);
    return made;
}

} // namespace km
