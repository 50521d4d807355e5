// StatusHandler: coded objects as files that survive a crash
//
// An object lives in one file P, written as a whole. While a change is under way P + ".bak" holds
// the last good state; a ".bak" that is found at the next start becomes P and, as P + ".wrn", the
// warning that this object has failed once. A file that cannot be decoded is moved to the directory
// "removed" beside it and never tried again. What lies beside P under P + "_msg_statuses" is the
// owner's. No lock: the exclusive creation of names is the only protection among processes, so one
// process at a time loads a directory. The page of the format: docs/formats/status-files.md.
#pragma once

#include "pathname.h"
#include "vector.h"

#include <memory>

namespace km {

class StatusHandler {
  public:
    // Takes the object over. With `no_backup` loading makes no ".bak".
    explicit StatusHandler(codable* object = nullptr, int no_backup = 0);
    virtual ~StatusHandler();
    StatusHandler(const StatusHandler&) = delete;
    StatusHandler& operator=(const StatusHandler&) = delete;

    // Makes a new file, empty, with an empty ".bak": dir's text + prefix + priority + the time in
    // seconds (eleven digits), which `id` gets. `dir` is made if need be and ends in '/'. A name
    // that is taken moves the number on, so that names of one process rise. 1 and `out`, or 0.
    static int make_msg_file(long& id, char priority, pathname& out, const pathname& dir,
                             const ustring& prefix);
    // Writes the object as P (temporary file, flush, rename), then removes ".bak" and ".wrn". 1, or
    // 0: P is the old or the new state, and ".bak", if there was one, is still there unless
    // removing the ".wrn" was what failed.
    int commit(const pathname& path);
    // The same with an object that is lent for the call.
    int commit(const pathname& path, const codable* object);
    // Removes the ".bak". 1 or 0.
    int rollback(const pathname& path);
    // Removes ".bak", P and ".wrn", each whatever became of the others. 1 or 0.
    int remove(const pathname& path);
    // The objects of all files of the prefix, opened for change, in the order of their names; the
    // vector and the objects are the caller's. What cannot be used is passed over.
    vector* load(const pathname& dir, const ustring& prefix);
    // The files to load one by one with _load_obj, as pathnames in `paths`; files that failed once
    // go to "removed". Bytes of these files in all.
    long load_dir(const pathname& dir, const ustring& prefix, vector& paths);
    // Number of entries with the prefix.
    int load_dir_test(const pathname& dir, const ustring& prefix);
    // The object of a file, the caller's; null if there is none, or none that can be used: then the
    // file is in "removed".
    codable* _load(const pathname& path);
    // The same, opened for change: makes the ".bak", or goes back to it if there is one.
    codable* _load_obj(const pathname& path);
    virtual int reset();

    codable* get_object() const { return object_.get(); }

  private:
    codable* decode(const pathname& path);
    int restore(const pathname& path);
    int find_status_file(const pathname& dir, ustring& name);
    void load_entry(const pathname& dir, const ustring& listed, vector& objects);
    long take_entry(const pathname& dir, const ustring& listed, long size, vector& paths);

    std::unique_ptr<codable> object_;
    int no_backup_;
};

// 1 if `name` has failed once: its ".wrn" is in the directory or in its "removed".
int warning_exists(const pathname& dir, const ustring& name);

} // namespace km
