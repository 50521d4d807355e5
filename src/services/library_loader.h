// library_loader: finds factories by name in listed libraries
#pragma once

#include "hashtable.h"
#include "pathname.h"

#include <vector>

namespace km {

// A function's address as a value of a Hashtable.
class func_ptr : public uncoded<codable> {
  public:
    explicit func_ptr(void* at = nullptr) : address(at) {}
    codable* clone() const override { return new func_ptr(address); }
    void* address;
};

// Turns a symbol's name into its address: from the table of symbols that were found before, then
// from the libraries that are loaded, then by loading the listed ones in their order. The list is
// the file "libs.znp" of the configuration directory: one library per line without ".so", a bare
// name or an absolute path. Libraries are never unloaded. No lock.
class library_loader : public Hashtable {
  public:
    struct libs_t {
        ustring name;
        void* handle = nullptr;
        int to_be_unloaded = 1;
    };

    static library_loader* instance();
    // The next instance() reads the list again.
    static void discard();

    // The address, or null.
    void* get_api(const ustring& name);
    // With `first` not 0 the library goes to row 0: over a library that stands there while a row is
    // free, in front of all where none is.
    void add_library(const ustring& name, int first);
    // 0 if the file cannot be opened.
    int add_libraries_from_file(const pathname& path);
    // Index of the row to use; makes room.
    int find_pos(int first);
    const Hashtable& get_symbols() const { return *this; }
    // Copies the table.
    void set_symbols(const Hashtable& symbols);
    const std::vector<libs_t>& get_libraries() const { return _libs; }

  private:
    library_loader();
    void* keep_symbol(const ustring& name, void* address);

    static library_loader* _instance;
    std::vector<libs_t> _libs;
};

} // namespace km
