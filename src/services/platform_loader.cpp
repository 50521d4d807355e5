// platform_loader: the dynamic linker behind three functions
// no format
// invariant: the only place that calls the dynamic linker
#include "platform_loader.h"

#include "trclog.h"

#include <cstring>
#include <dlfcn.h>
#include <string>
#include <unistd.h>

namespace km {

namespace {
// A library that was installed together with this one is found wherever that was; the linker's own
// search is for the others. Tools that wrap dlopen take its callers' search paths away.
std::string beside_this(const char* name) {
    Dl_info about{};
    if (std::strchr(name, '/') || !::dladdr(reinterpret_cast<void*>(&OmbLoadLibrary), &about) ||
        !about.dli_fname)
        return name;
    std::string path = about.dli_fname;
    path.resize(path.find_last_of('/') + 1);
    path += name;
    return path.find('/') != std::string::npos && ::access(path.c_str(), F_OK) == 0 ? path : name;
}
} // namespace

void* OmbLoadLibrary(const char* name) {
    KM_TRACE_FUNCTION("OmbLoadLibrary");
    void* library = ::dlopen(beside_this(name).c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (!library)
        KM_TRACE(trace_error, "common", "dlopen () ==> '%s'", ::dlerror());
    return library;
}

void* OmbGetProcAddress(void* library, const char* symbol) {
    KM_TRACE_FUNCTION_OFTEN("OmbGetProcAddress");
    void* address = ::dlsym(library, symbol);
    if (!address)
        KM_TRACE(trace_warning, "common", "dlsym () ==> '%s'", ::dlerror());
    return address;
}

int OmbUnloadLibrary(void* library) { return ::dlclose(library); }

} // namespace km
