// sp_object: reader and writer of the package stream
//
// The stream: string field 0 the signature, long field 3 the build number, object field 1 the
// variables (or null), object field 2 the package with its whole tree. An SP file is a zip with one
// entry that holds it; in a block that is the first entry, "SoftwarePackage", and the data of the
// commands follow in tree order. The page of the format: docs/formats/package-file.md.
#pragma once

#include "command.h"

namespace km {

class decoder;
class input_channel;
class output_channel;
class spmessage;
class variable_list;
struct _sequence_string;

class sp_object {
  public:
    enum sp_type : int { sp = 0, spb = 1, either = 2 };

    // Lends the list, which may be null.
    explicit sp_object(spmessage* list = nullptr) : messages(list) {}

    // Writes the stream to the channel, which is closed. 0, or 9.
    cm_result encode(cm_package* package, variable_list* variables, output_channel& to,
                     sp_type type);
    // Writes a zip with the stream as its one entry. 0; 9 with message 25.
    cm_result encode(cm_package* package, variable_list* variables, const pathname& to,
                     sp_type type);
    // Reads the stream from where the channel stands; the channel stays the caller's. The package
    // is the caller's, null on failure. With `substitute` its texts are resolved as they are read,
    // but conditions and dependencies. Makes it the package of the dynamic variables. 0; 9 with
    // message 82. A lost network (channel error 12) inside the tree ends the process with status 0.
    cm_result decode(cm_package*& package, input_channel* from, int substitute, sp_type type);
    // The same from the first entry of a zip; message 24 if it cannot be opened.
    cm_result decode(cm_package*& package, const pathname& from, int substitute, sp_type type);
    // The package's variables without its tree; the caller's, may be null.
    cm_result decode_variables(input_channel* from, variable_list*& variables);
    // 1 if it is one of the type's signatures.
    static int is_valid_signature(const ustring& signature, sp_type type);

    spmessage* messages;
    cm_result result = cm_command::success;
    const _sequence_string* command_line_variables = nullptr; // lent: texts "name=value"
    int whole_channel = 0;     // 1: nobody reads behind the package; it is read in blocks
    int invalid_signature = 0; // 1 after a decode that failed on the signature

  private:
    bool decode_head(decoder& from, sp_type type);
    void decode_tree(cm_package*& package, decoder& from, input_channel& source, int substitute);
    void tell_corrupted();
    cm_result fail_open(const char* trace, long key, const pathname& path, int error);
};

} // namespace km
