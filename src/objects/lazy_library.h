// lazy_library: a shared library that is loaded when its first function is needed
//
// Loading the larger ones takes longer than most commands that need nothing of them.
#pragma once

#include <string>

namespace km {

class lazy_library {
  public:
    explicit lazy_library(const char* file_name);
    // The function of that name, null if it is not there.
    template <class function> void find(const char* name, function& into) {
        into = reinterpret_cast<function>(address_of(name));
    }
    // What was missing first; empty: nothing so far.
    const std::string& why() const { return why_; }

  private:
    void* address_of(const char* name);
    void note_failure();

    const char* file_name_;
    void* library_;
    std::string why_;
};

} // namespace km
