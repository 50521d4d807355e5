// files_ahead: files written before their turn by a second processor, without a name
//
// While the walk puts one file of a directory in place, the data of those that follow there are
// written to files without a name. Giving one its name is all that is left to do in its turn. What
// never gets a name is gone with its descriptor, also when the process is killed.
#pragma once

#include "file_attributes.h"
#include "inflate_ahead.h"
#include "open_file.h"

#include <map>
#include <memory>
#include <pthread.h>
#include <string>
#include <vector>

namespace km {

class cm_package;
struct place;

struct nameless_file : entry_work::product {
    nameless_file(int descriptor, const file_attributes& attributes)
        : file(descriptor), given(attributes) {}
    open_file file; // holds the data of the entry
    ino_t inode = 0;
    file_attributes given; // that it has
};

class files_ahead : public entry_work {
  public:
    bool is_due(const std::string& name) override;
    std::unique_ptr<product> work(const std::string& name, const std::string& bytes) override;

    // The walk has come to `where`; true if that is another directory than before. Of the files of
    // the package that are there too, those that do not stand already are due. `replaces`: a file
    // stood where the first of them goes.
    bool come_to(const cm_package& package, const place& where, bool replaces);

  private:
    struct directory;
    struct planned {
        long number = 0; // of its entry
        int directory = 0;
        file_attributes attributes;
    };

    void plan(const cm_package& package);
    bool find(const std::string& name, planned& file, std::shared_ptr<directory>& into);

    // Of the walk alone:
    const cm_package* planned_for_ = nullptr;
    std::string parent_;
    std::map<std::string, int> directories_;

    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER; // for the rest
    std::vector<planned> files_;                       // by number
    int current_ = -1;
    std::shared_ptr<directory> open_;
    bool is_possible_ = true; // file systems without such files exist
};

} // namespace km
