// platform_loader: the dynamic linker behind three functions
#pragma once

namespace km {

// Loads a library with all its symbols for everybody; null with a trace.
void* OmbLoadLibrary(const char* name);
// Address of a symbol in the library or what it depends on; null with a trace.
void* OmbGetProcAddress(void* library, const char* symbol);
// 0, or what the linker says.
int OmbUnloadLibrary(void* library);

} // namespace km
