// object: base of the concrete objects of a host
//
// An object is one thing on the machine (a file, a directory, a link ...). It knows how to do its
// own change; when, is the business of the command around it. Phases are those of command.h, so
// that an object can do its staged work per phase. Every operation may have run before, wholly or
// in part: it looks first, does only what is missing, and success means "it is so now".
#pragma once

#include "command.h"

namespace km {

// Coded form: the base's form; object field 100 `package` (a back reference), integer field 101
// `ref_count`, boolean field 102 `is_shared`, integer field 103 `sharing_control_count`.
class cm_object : public codable {
  public:
    cm_object() = default;
    cm_object(const cm_object& other) = default;
    cm_object& operator=(const cm_object& other) = default;

    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    // The key "is_shared" where the definition allows it; a shared object counts for one.
    void import(importer& from) override;
    void export_(exporter& to) const override;

    virtual void set_data_source(ustring host, int from_source_host, pathname* base);
    // Bytes of data in the package.
    virtual long get_size();
    virtual cm_result add(int phase) = 0;
    virtual cm_result remove(int phase) = 0;
    // Whether add or remove would work; no side effect.
    virtual cm_result check_add(int phase) = 0;
    virtual cm_result check_remove(int phase) = 0;
    // Whether what stands on the machine can be read for a backup.
    virtual cm_result can_read();
    virtual int exists(int phase) = 0;
    virtual int is_identical(int phase) = 0;
    // What stands on the machine is newer than this definition.
    virtual int is_newer();
    virtual long load_modification_time();
    virtual int get_undo_replace_if_newer();
    // A new object that describes what stands on the machine, the caller's; null with `result` set.
    virtual cm_object* get_undo_object() = 0;
    virtual cm_result save(zipping_channel* out);
    virtual cm_result save(unzipping_channel* in, zipping_channel* out);
    virtual cm_result delta_save(pathname* base, unzipping_channel* in, zipping_channel* out);
    virtual cm_result load(int load);
    // Steps over the object's data in the input stream.
    virtual cm_result skip_data();
    // Its name is the key of the reference counts.
    virtual ustring get_name();
    virtual ustring get_log(int action);
    virtual int get_ref_count();
    virtual void set_ref_count(int count);
    virtual void set_package(cm_package* package);
    // The object is the one at which a run is being resumed.
    virtual int is_during_a_restart();
    virtual void set_container(cm_command* container);

    std::int32_t is_shared = 0;
    std::int32_t ref_count = 0; // what this package adds to the count; may be negative in an undo
    cm_package* package = nullptr;          // lent
    cm_result result = cm_command::success; // of the last operation without a value
    std::int32_t sharing_control_count = 0; // count when the package first met the object
    ustring condition; // of a container's object: the container takes it over; not coded
    std::int32_t preview_name = 0;          // get_name in its preview form; not coded
};

} // namespace km
