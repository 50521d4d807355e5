// file: a name in the file system and its operations
#pragma once

#include "pathname.h"
#include "vector.h"

#include <utime.h>

namespace km {

// A name in the file system; no open descriptor. Operations go to the system by name and return 1
// or 0 (or a value, -1 for failure); get_error() keeps the errno of the last failure that stores
// it. An empty path gives 0 with a trace.
class file {
  public:
    file() = default;
    explicit file(const pathname& path) : path_(path) {}
    explicit file(const ustring& path) : path_(path) {}
    virtual ~file() = default;

    const pathname& get_path() const { return path_; }
    void set_path(const pathname& path) { path_ = path; }
    int get_error() const { return error_; }

    // 0 if the name is not there or not to be reached; any other trouble counts as "there".
    int exists();
    // A bare name is looked for along PATH.
    int exists_in_path();
    int can_write();
    int can_read();
    int can_create_path();
    int can_rename() { return 1; }
    int is_file();
    // By bit 0x4000 of the mode, which sockets and block devices also have.
    int is_directory();
    int is_link();
    // Whether another process holds the file: it cannot be opened for writing.
    int is_locked(int unused = 0);
    int set_write();
    // Hard links, -1 if unknown.
    long references();
    // Bytes, 0 for a directory, -1 if unknown.
    long get_size();
    int mk_dir();
    // The directory with all its parents.
    int mk_tree();
    // Afterwards this object stands for the target. With `copy_on_failure` a rename that fails
    // becomes a copy and a removal.
    int rename_to(const pathname& new_path, int copy_on_failure);
    // A link is removed itself, never what is behind it. 1 if there is nothing to remove.
    int remove(int recursive);
    // Removes what matches the pattern in the directory, and directories that became empty.
    int remove(const ustring& pattern, int recursive);
    // Names but "." and ".." that match, as new ustrings in directory order.
    int list(vector& names, const ustring& pattern);
    // The same as file_info records.
    int list_file_info(vector& infos, const ustring& pattern);

    // The whole st_mode.
    int get_file_attributes(unsigned long& mode);
    // Sets the low twelve bits; 1 only if they read back the same.
    int set_file_attributes(unsigned long bits);
    virtual int reset_attributes();
    // Portable attribute bits, owner and group.
    int get_attributes(unsigned long& attributes, long& owner, long& group);
    int set_attributes(unsigned long attributes);
    long get_owner();
    long get_group();
    int set_owner(long owner);
    int set_group(long group);
    // Seconds, -1 if unknown.
    long last_modified();
    long last_write_time() { return last_modified(); }
    long get_creation_time();
    long last_access_time();
    long last_archive_time() { return last_access_time(); }
    int set_time_stamps(const utimbuf* times);
    ustring get_version();
    file get_volume() const { return file(pathname(path_.get_volume())); }

    // A plain file, or a directory and, with `recurse`, one level below it. On a full disk the
    // target is removed and the result is 0. A file copied to itself, by whatever name, stays.
    int copy(file& target, int recurse);

    // A new file (`is_file` not 0) or directory with a free name of the prefix (at most 7
    // characters) and six digits in `dir`, which is made if need be; names in `skip_names`
    // (pathnames, in any order) are passed over. The caller's, or null.
    static file* get_temp_name(const pathname& dir, const ustring& prefix, int is_file,
                               vector* skip_names);
    // The first number to try, counting down from max. The buffer, of at least 64 bytes, gets the
    // name that was asked last.
    static unsigned long binary_search(char* buffer, const pathname& dir, const ustring& prefix,
                                       unsigned long max);
    // The text with a '/' behind it if it names a directory of this machine.
    static ustring convert_to_zip_format(const char* name);
    static ustring convert_to_pathname(const char* name);
    // Order of two pathname*, for arrays.
    static int compare_pathnames(const void* a, const void* b);

    // Writes this text file to `target` (made 0600, or overwritten) in UTF-8 (type 0), or from
    // UTF-8 in the code page of the locale (type 1). Bytes that are no character of the source's
    // encoding pass unchanged; a character without a place in the target's becomes '?'. 1, or 0
    // with a trace: a file that cannot be opened, another type, a target that is this very file
    // (it stays as it is), or a failure on the way, after which the target is removed. A crash
    // leaves a part of the target. The body is in file_translate.
    int translate(const pathname& target, int type);
    int translate_to_utf8(const pathname& target) { return translate(target, 0); }
    int translate_from_utf8(const pathname& target) { return translate(target, 1); }

  private:
    int remove_directory(int recursive);
    bool is_same(const file& other) const;
    int copy_content(file& target);
    int copy_children(file& target);
    int keep(int error);

    pathname path_;
    int error_ = 0;
};

} // namespace km
