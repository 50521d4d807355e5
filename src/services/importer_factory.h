// importer_factory: loads importers and exporters by extension
#pragma once

#include "ustring.h"

namespace km {

class importer;
class exporter;

// Finds "make_importer" and "make_exporter" in the library that the settings name for a file's
// extension. What was found first stays bound until library_loader::discard(): callers discard
// between extensions.
class importer_factory {
  public:
    static void set_lib(const ustring& extension);
    // The library's own object, to be given back to unload_importer; null with a trace.
    static importer* load_importer(const ustring& extension);
    // New; null with a trace.
    static exporter* load_exporter(const ustring& extension);
    // Closes it; the library owns it and resets it when it is loaded again.
    static void unload_importer(importer* loaded);
    // Closes and deletes it.
    static void unload_exporter(exporter* loaded);
};

} // namespace km
