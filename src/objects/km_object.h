// km_object: what files, directories and links have in common
//
// Coded form behind that of cm_object: string field 200 path, integer fields 201 mode (twelve
// bits), 202 owner, 203 group, string field 204 time of modification ("seconds.nanoseconds", nine
// digits behind the dot), string field 205 size in bytes, string field 206 digest (SHA-256 in
// hexadecimal, empty where there are no data), integer field 207 number of the data entry (0 none),
// boolean field 208 staged, string field 209 staged name, boolean field 210 created.
#pragma once

#include "object.h"
#include "target_root.h"

#include <string>
#include <sys/stat.h>

namespace km {

class km_object : public cm_object {
  public:
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    // Keys "path", "source" (see source_text), "mode" (octal), "owner", "group" (numbers, or names
    // of the machine that imports). A value that is none is a message, and sets the importer's
    // flags to bad_value.
    void import(importer& from) override;
    // Mode, owner and group only where they were given, or are those of a source that was loaded.
    void export_(exporter& to) const override;

    cm_result check_add(int phase) override;
    cm_result check_remove(int phase) override;
    cm_result add(int phase) override;
    cm_result remove(int phase) override;
    int exists(int phase) override;
    int is_identical(int phase) override;
    int is_newer() override;
    long load_modification_time() override;
    cm_result load(int load) override;
    // The object of what stands there; its class may be another.
    cm_result can_read() override;
    cm_object* get_undo_object() override;
    ustring get_name() override { return path; }
    ustring get_log(int action) override;

    // In words: "file", "directory", "link", "hard link", "kept file".
    virtual const char* kind() const = 0;
    // What stands there is of the kind of this object.
    virtual bool is_same_kind(const struct stat& about) const = 0;
    // Where `load` and `save` find it on the machine that packs; not below the target root. What
    // the definition gave of mode, owner and group holds against what the source has.
    void set_source(const std::string& file) { source = file; }
    const std::string& get_source() const { return source; }
    // Tells the temporary names of the commands of a package apart.
    void set_index(int index) { index_ = index; }

    // The path as bytes of a file name.
    const std::string& path_bytes() const;
    void set_path(const ustring& text) { path = text; }
    std::string temporary_name() const;

    // A staged copy waits: nothing was put in place.
    bool is_only_prepared() const;
    cm_result drop_staged();
    // Messages of a failure; the result that they give.
    cm_result fail(const char* what, const std::string& path, int error);
    cm_result fail(long message, const std::string& path);
    void take_metadata(const struct stat& about);
    // What has no source has the time of its making.
    void take_default_metadata(std::int32_t default_mode);

    ustring path;
    std::int32_t mode = 0;
    std::int32_t owner = 0;
    std::int32_t group = 0;
    ustring mtime; // "seconds.nanoseconds"
    long size = 0;
    ustring digest;
    std::int32_t sequence = 0;
    std::int32_t staged = 0;
    ustring staged_name; // full path
    std::int32_t created = 0;
    std::string source;  // not coded
    ustring source_text; // not coded: the source as the definition has it, for the host to resolve

  protected:
    // What a class does in the phases that change the machine. The parent is there.
    virtual cm_result put(int phase) = 0;
    virtual cm_result take() = 0;
    // What cannot wait beside its place is put there by the commit; the prepare only checks.
    virtual bool is_stageable() const { return true; }
    // In p_prepare: makes the staged copy.
    virtual cm_result stage() { return cm_command::success; }
    // Whether `at` holds what this object describes, its rights apart unless asked for.
    virtual bool stands_as_described(const std::string& at, bool with_rights) = 0;
    virtual cm_result finish_add() { return cm_command::success; }
    // Checks of a class beside those of all, for `checked_phase_`: the target is `present`, or
    // null.
    virtual cm_result check_target(const place&, const struct stat*) { return cm_command::success; }
    // The staged copy was renamed into its place.
    virtual void was_placed() {}

    bool same_rights(const struct stat& about) const;
    timespec modification_time() const;
    // Missing parents of `path`, each noted as made by the package before it is.
    cm_result make_parents(const std::string& of);
    // Parents that this package made and that are empty now, as soon as the walk leaves them.
    cm_result remove_made_parents(const std::string& of);
    cm_result leave_directory(const std::string& for_another = {});
    cm_result clean_parents();
    cm_result remove_own(const std::string& name);
    void drop_temporary();
    // The directory, with its '/', in which the staged copy waits: the nearest one that is there.
    // Empty: none can be reached.
    std::string staging_directory();
    void note_staged(const std::string& name);
    bool well_formed() const;

    // Something is made under the temporary name; then it has its own one.
    void begin_temporary() { made_temporary_ = true; }
    void end_temporary() { made_temporary_ = false; }

    int checked_phase_ = p_do;

    // In the commit: the staged copy is renamed into its place.
    virtual cm_result put_staged(int phase);

  private:
    // Which of its attributes the definition gave.
    struct given {
        bool mode = false;
        bool owner = false;
        bool group = false;
    };

    void drop_unnoted();
    void import_rights(importer& from);
    bool was_undone() const;

    bool made_temporary_ = false;
    mutable std::string bytes_;
    mutable ustring bytes_of_;
    int index_ = 0;
    given given_;
};

// Flags of an importer behind a value that an object or a command of this library cannot use.
constexpr int bad_value = 0x40000;

// Behind a temporary name: a copy that is whole and waits for the commit.
constexpr char staged_mark[] = "s";

// Whether a run that was cut may have left files under temporary names; so it is taken to be until
// this is called. Where none can be there none is looked for.
void expect_leftovers(bool expected);

// Whether this process may give files away.
bool is_privileged();

} // namespace km
