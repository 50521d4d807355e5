// directory_kept_open: the directory that was asked for last, below the target root
//
// For whoever goes through files of which those of one directory follow each other.
#pragma once

#include "open_file.h"
#include "target_root.h"

#include <optional>
#include <string>

namespace km {

class directory_kept_open {
  public:
    // Opens `path`, and closes what was open. False: it was asked for the last time, too, and
    // nothing is done.
    bool go_to(const std::string& path) {
        if (open_ && path == path_)
            return false;
        close();
        open_.emplace(open_directory_below_root(path));
        path_ = path;
        return true;
    }
    bool good() const { return open_ && open_->good(); }
    // An O_PATH descriptor, lent; -1 where the directory cannot be opened or none was asked for.
    int get() const { return open_ ? open_->get() : -1; }
    void close() { open_.reset(); }

  private:
    std::string path_;
    std::optional<open_file> open_;
};

} // namespace km
