// importer_factory: loads importers and exporters by extension
// no format
// invariant: the library of an extension is searched before all others
#include "importer_factory.h"

#include "base_configuration.h"
#include "exporter.h"
#include "importer.h"
#include "library_loader.h"
#include "trclog.h"

namespace km {

namespace {

void* builder(const char* symbol) {
    KM_TRACE(trace_info, "common", "loading the builder function '%s'...", symbol);
    void* address = library_loader::instance()->get_api(ustring(symbol));
    if (address)
        KM_TRACE(trace_info, "common", "builder function '%s' Loaded'", symbol);
    else
        KM_TRACE(trace_error, "common", "builder function '%s' NOT correctly loaded !'", symbol);
    return address;
}

} // namespace

void importer_factory::set_lib(const ustring& extension) {
    library_loader::instance()->add_library(base_configuration().get_import_library(extension), 1);
}

importer* importer_factory::load_importer(const ustring& extension) {
    KM_TRACE_FUNCTION("importer_factory::load_importer");
    set_lib(extension);
    void* address = builder("make_importer");
    return address ? reinterpret_cast<importer* (*)()>(address)() : nullptr;
}

exporter* importer_factory::load_exporter(const ustring& extension) {
    KM_TRACE_FUNCTION("importer_factory::load_exporter");
    set_lib(extension);
    void* address = builder("make_exporter");
    return address ? reinterpret_cast<exporter* (*)()>(address)() : nullptr;
}

void importer_factory::unload_importer(importer* loaded) {
    if (loaded)
        loaded->close();
}

void importer_factory::unload_exporter(exporter* loaded) {
    if (loaded)
        loaded->close();
    delete loaded;
}

} // namespace km
