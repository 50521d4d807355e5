// library_loader: finds factories by name in listed libraries
// format: docs/formats/libs.md
// invariant: a name that was found once is never looked for again until discard()
#include "library_loader.h"

#include "base_configuration.h"
#include "platform_loader.h"
#include "trclog.h"

#include <cstdio>

namespace km {

library_loader* library_loader::_instance = nullptr;

library_loader* library_loader::instance() {
    if (!_instance) {
        KM_TRACE(trace_info, "common", "Create the library_loader instance");
        _instance = new library_loader;
    }
    return _instance;
}

void library_loader::discard() {
    KM_TRACE(trace_info, "common", "Destroy the library_loader instance");
    delete _instance;
    _instance = nullptr;
}

library_loader::library_loader() : Hashtable(21, 0.75F), _libs(2) {
    const pathname list = base_configuration().get_library_file();
    if (list.get_text().empty() || !add_libraries_from_file(list))
        KM_TRACE(trace_fatal, "common", "LIBRARIES FILE NOT FOUND!");
}

int library_loader::find_pos(int first) {
    int row = 0;
    while (row < static_cast<int>(_libs.size()) && !_libs[static_cast<size_t>(row)].name.empty())
        ++row;
    if (row == static_cast<int>(_libs.size())) {
        KM_TRACE(trace_info, "common", "create a new table...");
        KM_TRACE(trace_info, "common", "copy the old table into the new one...");
        _libs.insert(first ? _libs.begin() : _libs.end(), libs_t());
    }
    return first ? 0 : row;
}

void library_loader::add_library(const ustring& name, int first) {
    libs_t& row = _libs[static_cast<size_t>(find_pos(first))];
    row = libs_t();
    row.name = name + ustring(u".so");
}

int library_loader::add_libraries_from_file(const pathname& path) {
    FILE* in = std::fopen(path.mbcs_str(), "re");
    if (!in)
        return 0;
    for (ustring line; line.getline(in);) {
        line.strip();
        if (!line.empty())
            add_library(line, 0);
    }
    std::fclose(in);
    return 1;
}

void* library_loader::keep_symbol(const ustring& name, void* address) {
    put(name, func_ptr(address));
    return address;
}

void* library_loader::get_api(const ustring& name) {
    KM_TRACE_FUNCTION_OFTEN("library_loader::get_api");
    if (const auto* known = get_as<func_ptr>(name)) {
        KM_TRACE(trace_return, "common", "function pointer FOUND in hashtable");
        return known->address;
    }
    for (const auto& row : _libs)
        if (row.handle)
            if (void* address = OmbGetProcAddress(row.handle, name.mbcs_str()))
                return keep_symbol(name, address);
    for (auto& row : _libs) {
        if (row.name.empty() || row.handle)
            continue;
        row.handle = OmbLoadLibrary(row.name.mbcs_str());
        if (!row.handle)
            continue;
        row.to_be_unloaded = 0;
        if (void* address = OmbGetProcAddress(row.handle, name.mbcs_str()))
            return keep_symbol(name, address);
    }
    return nullptr;
}

void library_loader::set_symbols(const Hashtable& symbols) {
    if (&symbols != this)
        static_cast<Hashtable&>(*this) = symbols;
}

} // namespace km
