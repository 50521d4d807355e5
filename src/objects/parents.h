// parents: directories above an object that are made for it, and go with it
#pragma once

#include "target_root.h"

#include <string>

namespace km {

class cm_package;

struct parent_fault {
    const char* what = nullptr; // null: none
    std::string path;
    int error = 0;
    explicit operator bool() const { return what; }
};

// The place of the first missing parent, or of `path` itself where its parent is there; `path` is
// cut down to it.
place nearest_place(std::string& path);

// Makes the missing parents of `path`, each noted as made by the package before it is.
parent_fault make_noted_parents(const cm_package* package, const std::string& path);

// Removes the parents that the package made and that are empty now.
parent_fault remove_noted_parents(const cm_package& package, const std::string& path);

} // namespace km
