// files_ahead: files written before their turn by a second processor, without a name
//
// While the walk puts one file in place, the data of those that follow are written to files without
// a name, as far as their directories stand. Giving one its name is all that is left to do in its
// turn. What never gets a name is gone with its descriptor, also when the process is killed.
#pragma once

#include "directory_kept_open.h"
#include "file_attributes.h"
#include "inflate_ahead.h"
#include "open_file.h"

#include <cstddef>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace km {

class cm_package;
struct place;

struct nameless_file : entry_work::product {
    nameless_file(int descriptor, const file_attributes& attributes)
        : file(descriptor), given(attributes) {}
    open_file file; // holds the data of the entry
    ino_t inode = 0;
    file_attributes given;  // that it has
    struct stat made_in {}; // the directory, which may have given it rights of its own
};

// Such a file in an open directory. Null: it cannot be made there, or not be written.
std::unique_ptr<nameless_file> write_nameless(int directory, const file_attributes& attributes,
                                              const std::string& bytes);

class files_ahead : public entry_work {
  public:
    when is_due(const std::string& name) override;
    std::unique_ptr<product> work(const std::string& name, const std::string& bytes) override;

    // The walk has come to `where`; true if that is another directory than before. The files of
    // the package that do not stand already are due. `replaces`: a file stood where this one goes.
    bool come_to(const cm_package& package, const place& where, bool replaces);

  private:
    struct planned {
        long number = 0; // of its entry
        std::size_t parent = 0;
        file_attributes attributes;
    };
    void plan(const cm_package& package);
    const planned* find(const std::string& name) const;
    bool open_parent(const std::string& path, bool replaces);

    // Of the walk alone:
    const cm_package* planned_for_ = nullptr;
    std::string parent_;

    // Of the thread alone:
    directory_kept_open open_;
    struct stat about_open_ {};
    // The file system would write the data of a file when it replaces another one, and have the
    // walk wait for that.
    bool starts_writing_ = false;

    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER; // for the rest
    std::vector<planned> files_;                       // by number
    std::vector<std::string> parents_;
    std::string missing_; // the directory that is not there yet
    bool replaces_ = false;
    bool is_possible_ = true; // file systems without such files exist
};

} // namespace km
