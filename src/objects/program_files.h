// program_files: the files that a program of a package brings with it
//
// An install lays them into a directory of the package's own, where they stay until it leaves the
// catalog: programs of a later remove are among them. The directory is noted in "service.ctl"
// before it is made (docs/formats/service-control.md). It is "corequisites/NAME^VERSION/INDEX"
// below the working directory, or, where that cannot be seen from inside the target root,
// "/.km-corequisites.NAME^VERSION/INDEX" in it.
#pragma once

#include "composite_command.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace km {

class program_files {
  public:
    program_files() = default;
    program_files(const program_files& other) : tree_(copy_of(other)) {}
    program_files& operator=(const program_files& other) {
        tree_.reset(copy_of(other));
        return *this;
    }

    // Commands that add files, with paths below the directory; null for none.
    cm_composite_command* tree() const { return tree_.get(); }
    // Takes it over.
    void take(cm_composite_command* tree) { tree_.reset(tree); }
    bool brings(const std::string& path) const;
    long size() const; // bytes of data
    // The first path that does not stay below a directory, or that comes twice; empty: none.
    std::string refused_path() const;
    // Puts each into `directory`, a path in the target root, from the stream of the package. What
    // stands there already is passed over; a failure leaves the rest out, and the stream aligned.
    cm_result unpack(cm_package& package, const std::string& directory) const;

  private:
    static cm_composite_command* copy_of(const program_files& other) {
        return other.tree_ ? static_cast<cm_composite_command*>(other.tree_->clone()) : nullptr;
    }
    std::unique_ptr<cm_composite_command> tree_;
};

// Where the command of that index finds its files, in the target root.
std::string program_directory(const std::string& name, const std::string& version, int index);

// The directories of private files of a package, full paths, as "service.ctl" has them.
std::vector<std::string> private_directories_of(const std::string& name,
                                                const std::string& version);
// Notes one, or takes the notes of a package out and leaves the directories. 1, or 0 with errno.
int note_private_directory(const std::string& name, const std::string& version,
                           const std::string& directory);
int forget_private_directories(const std::string& name, const std::string& version);
// Removes those directories of program files whose package `is_known` does not know: an install
// that never came into the catalog left them. 1, or 0.
int sweep_private_directories(
    const std::function<bool(const std::string& name, const std::string& version)>& is_known);

} // namespace km
