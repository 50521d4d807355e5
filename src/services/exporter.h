// exporter: what writes a text definition
#pragma once

#include "pathname.h"

namespace km {

// The writer of a text definition, supplied by another library; the mirror of importer.
class exporter {
  public:
    virtual ~exporter() = default;
    // Opens the file to write; 1, or 0.
    virtual int open(const pathname& path) = 0;
    virtual void close() = 0;
    virtual void put_boolean(const char* name, int value) = 0;
    virtual void put_string(const char* name, const ustring& value) = 0;
    virtual void put_pathname(const char* name, const pathname& value) = 0;
    virtual void put_integer(const char* name, int value) = 0;
    virtual void put_object(const char* name, const codable* value) = 0;
    virtual void set_add_mode(int add) = 0;
    virtual int is_shared_allowed() = 0;
    virtual ustring current_stanza() = 0;
    // Compared with "corequisite_files".
    virtual ustring stanza_context() = 0;
    virtual void begin_stanza(const char* name) = 0;
    virtual void end_stanza() = 0;
};

} // namespace km
