// lazy_library: a shared library that is loaded when its first function is needed
// no format
// invariant: what is loaded stays to the end of the process
#include "lazy_library.h"

#include <dlfcn.h>

namespace km {

lazy_library::lazy_library(const char* file_name)
    : file_name_(file_name), library_(::dlopen(file_name, RTLD_NOW | RTLD_LOCAL)) {
    if (!library_)
        note_failure();
}

void* lazy_library::address_of(const char* name) {
    void* const found = library_ ? ::dlsym(library_, name) : nullptr;
    if (!found && why_.empty())
        note_failure();
    return found;
}

void lazy_library::note_failure() {
    const char* told = ::dlerror();
    why_ = told ? told : file_name_;
}

} // namespace km
