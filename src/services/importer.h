// importer: what reads a text definition
#pragma once

#include "pathname.h"

namespace km {

class cm_command;
class cm_package;
class spmessage;

// The parser of a text definition, supplied by another library. A class pulls its attributes by
// name: an out value holds the default when the operation is called and is untouched where the
// attribute is absent; the result is not 0 if it was present. Errors are messages; `flags` tells at
// the end that there were some, and the last assigned value stands.
class importer {
  public:
    enum flag : int { mixed = 0x10000, unclosed_block = 0x20000, bad_condition = 0x30000 };

    virtual ~importer() = default;
    // Parses a file into a new package, the caller's. 1, or 0 with messages.
    virtual int load(const pathname& path, cm_package*& package) = 0;
    virtual void close() = 0;
    virtual int get_boolean(const char* name, int* value) = 0;
    virtual int get_string(const char* name, ustring* value) = 0;
    virtual int get_pathname(const char* name, pathname* value) = 0;
    virtual int get_integer(const char* name, int* value) = 0;
    // A new object, the caller's; null if absent.
    virtual int get_object(const char* name, codable** value) = 0;
    // 0 at the end of the block.
    virtual int next_pair(ustring* name, ustring* value) = 0;
    virtual int next_word(ustring* word) = 0;
    virtual void unread_word() = 0;
    // The next command, imported by its own import; the caller's until it is added. Null at the
    // end.
    virtual cm_command* next_command() = 0;
    // Whether the object at hand may carry "is_shared".
    virtual int is_shared_allowed() = 0;
    // 1 in an add stanza, 0 in a remove stanza.
    virtual void set_add_mode(int add) = 0;
    virtual ustring current_stanza() = 0;
    virtual cm_command* get_container() = 0;
    virtual void set_container(cm_command* container) = 0;
    virtual int line_number() = 0;

    spmessage* messages = nullptr; // lent
    int flags = 0;
};

} // namespace km
