// platform_loader: the dynamic linker behind three functions
// no format
// invariant: the only place that calls the dynamic linker
#include "platform_loader.h"

#include "trclog.h"

#include <dlfcn.h>

namespace km {

void* OmbLoadLibrary(const char* name) {
    KM_TRACE_FUNCTION("OmbLoadLibrary");
    void* library = ::dlopen(name, RTLD_NOW | RTLD_GLOBAL);
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
