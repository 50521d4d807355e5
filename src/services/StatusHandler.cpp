// StatusHandler: coded objects as files that survive a crash
// format: docs/formats/status-files.md
// invariant: a ".bak" that is not empty, a ".wrn" and a P that is not empty are whole objects
#include "StatusHandler.h"

#include "channel.h"
#include "codec.h"
#include "decode_channel.h"
#include "durable.h"
#include "encode_channel.h"
#include "file.h"
#include "file_info.h"
#include "kill_point.h"
#include "trclog.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace km {

StatusHandler::StatusHandler(codable* object, int no_backup)
    : object_(object), no_backup_(no_backup) {}

StatusHandler::~StatusHandler() = default;

int StatusHandler::reset() {
    object_.reset();
    return 1;
}

namespace {

pathname with_end(const pathname& path, const char16_t* end) {
    return pathname(path.get_text() + ustring(end));
}

pathname backup_of(const pathname& path) { return with_end(path, u".bak"); }
pathname warning_of(const pathname& path) { return with_end(path, u".wrn"); }
pathname culprits_of(const pathname& dir) { return dir + ustring(u"removed"); }

// Beside P, under a name that no listing by prefix finds: what a crash leaves there never passes
// for an object of its own. The next writing of P takes it over.
pathname temporary_of(const pathname& path) {
    return path.get_parent() + (ustring(u".") + path.get_file() + ustring(u".new"));
}

bool ends_in(const ustring& name, const char16_t* end) {
    const ustring text(end);
    return name.length() > text.length() && name.substr(name.length() - text.length()) == text;
}

ustring without_end(const ustring& name) { return name.substr(0, name.length() - 4); }

// Puts a copy of `from` in the place of `to`: a crash leaves no part of it under that name.
int copy_whole(const pathname& from, const pathname& to) {
    const pathname temporary = temporary_of(to);
    file target(temporary);
    target.remove(0);
    if (file(from).copy(target, 0) && rename_durably(temporary, to))
        return 1;
    target.remove(0);
    return 0;
}

// 0, or the errno.
int create(const pathname& path) {
    const int made = ::open(path.mbcs_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made < 0)
        return errno;
    ::close(made);
    return 0;
}

} // namespace

// The number of a name is the time, or, where names of that second are taken, what is free behind
// it, in growing steps: a second has room for any number of messages.
int StatusHandler::make_msg_file(long& id, char priority, pathname& out, const pathname& dir,
                                 const ustring& prefix) {
    KM_TRACE_FUNCTION("StatusHandler::make_msg_file");
    constexpr int most_tries = 99;
    static long last_id = 0;
    file(dir).mk_tree();
    const long now = ::time(nullptr);
    id = last_id >= now && last_id - now < most_tries * 1000 ? last_id + 1 : now;
    int error = EEXIST;
    for (long tried = 0, step = 1; tried < most_tries && error == EEXIST; ++tried) {
        char name[32];
        std::snprintf(name, sizeof name, "%c%011lu", priority, static_cast<unsigned long>(id));
        out = pathname(dir.get_text() + prefix + ustring(name));
        KM_TRACE(trace_info, "common", "attempting to create %s", out.mbcs_str());
        error = create(out);
        if (error == EEXIST)
            id += step *= tried < 30 ? 2 : 1;
    }
    if (error) {
        if (error == EEXIST)
            KM_TRACE(trace_error, "common", "unable to create msg file");
        else
            KM_TRACE(trace_error, "common", "failed to create file; errno=%d", error);
        return 0;
    }
    last_id = id;
    KM_KILL_POINT("status.make.created");
    error = create(backup_of(out));
    if (error) {
        KM_TRACE(trace_error, "common", "unable to create bak file; errno=%d", error);
        file(out).remove(0);
        return 0;
    }
    KM_TRACE(trace_info, "common", "OK file=%s", out.mbcs_str());
    return 1;
}

int StatusHandler::commit(const pathname& path) { return commit(path, object_.get()); }

namespace {

// 1 if the whole object stands in the file and on the disk.
int write_object(const pathname& path, const codable* object) {
    file(path).remove(0);
    file_output_channel out(path, 0);
    encode_channel channel(&out, 8192);
    encoder coder(&channel);
    coder.encode_object(object);
    coder.flush();
    return out.get_error() == 0 && coder.get_status() == 0;
}

} // namespace

int StatusHandler::commit(const pathname& path, const codable* object) {
    KM_TRACE_FUNCTION("StatusHandler::commit");
    KM_TRACE(trace_info, "common", "encoding to file '%s'", path.mbcs_str());
    const pathname temporary = temporary_of(path);
    if (!path.is_valid() || !write_object(temporary, object) ||
        !rename_durably(temporary, path, 0)) {
        KM_TRACE(trace_error, "common", "Failed to write '%s'", path.mbcs_str());
        file(temporary).remove(0);
        return 0;
    }
    KM_KILL_POINT("status.commit.written");
    for (const pathname& side : {backup_of(path), warning_of(path)}) {
        KM_TRACE(trace_info, "common", "removing '%s'", side.mbcs_str());
        if (!file(side).remove(0)) {
            KM_TRACE(trace_error, "common", "Failed to remove '%s'", side.mbcs_str());
            return 0;
        }
        KM_KILL_POINT("status.commit.side_removed");
    }
    return 1;
}

int StatusHandler::rollback(const pathname& path) {
    KM_TRACE_FUNCTION("StatusHandler::rollback");
    if (file(backup_of(path)).remove(0))
        return 1;
    KM_TRACE(trace_error, "common", "Failed to remove backup file '%s'",
             backup_of(path).mbcs_str());
    return 0;
}

int StatusHandler::remove(const pathname& path) {
    KM_TRACE_FUNCTION("StatusHandler::remove");
    int done = rollback(path);
    KM_KILL_POINT("status.remove.backup_gone");
    if (!file(path).remove(0)) {
        KM_TRACE(trace_error, "common", "Failed to remove file '%s'", path.mbcs_str());
        done = 0;
    }
    KM_KILL_POINT("status.remove.file_gone");
    if (!file(warning_of(path)).remove(0)) {
        KM_TRACE(trace_error, "common", "Failed to remove warning file '%s'",
                 warning_of(path).mbcs_str());
        done = 0;
    }
    file(temporary_of(path)).remove(0);
    return done;
}

codable* StatusHandler::decode(const pathname& path) {
    decode_channel channel(new buffered_input_channel(new file_input_channel(path), 8192), 512);
    decoder coder(&channel);
    codable* object = nullptr;
    coder.decode_object(object);
    if (coder.get_status() == 0)
        return object;
    KM_TRACE(trace_error, "common", "decoding error!");
    delete object;
    return nullptr;
}

codable* StatusHandler::_load(const pathname& path) {
    KM_TRACE_FUNCTION("StatusHandler::_load");
    if (!file(path).exists()) {
        KM_TRACE(trace_error, "common", "file '%s' does not exist!", path.mbcs_str());
        return nullptr;
    }
    KM_TRACE(trace_info, "common", "file '%s' exists, start decoding...", path.mbcs_str());
    if (codable* object = decode(path))
        return object;
    KM_TRACE(trace_error, "common", "File '%s' is invalid or corrupted", path.mbcs_str());
    const pathname culprits = culprits_of(path.get_parent());
    const pathname target = culprits + path.get_file();
    KM_TRACE(trace_info, "common", "creating directory: '%s'", culprits.mbcs_str());
    file(culprits).mk_tree();
    KM_TRACE(trace_info, "common", "moving file '%s' to '%s'", path.mbcs_str(), target.mbcs_str());
    if (!file(path).rename_to(target, 1))
        KM_TRACE(trace_error, "common", "FAILED to move culprit file");
    return nullptr;
}

// Goes back to the ".bak", which stays as the ".wrn".
int StatusHandler::restore(const pathname& path) {
    KM_TRACE_FUNCTION("StatusHandler::_load_obj");
    const pathname backup = backup_of(path), warning = warning_of(path);
    KM_TRACE(trace_warning, "common", "'%s' exists", backup.mbcs_str());
    if (!file(backup).rename_to(warning, 0)) {
        KM_TRACE(trace_error, "common", "Failed to rename bak file... exiting");
        return 0;
    }
    KM_KILL_POINT("status.open.warned");
    if (!copy_whole(warning, path)) {
        KM_TRACE(trace_fatal, "common", "Failed to create status file... exiting");
        return 0;
    }
    KM_KILL_POINT("status.open.restored");
    return 1;
}

codable* StatusHandler::_load_obj(const pathname& path) {
    KM_TRACE_FUNCTION("StatusHandler::_load_obj");
    file backup(backup_of(path));
    // An empty one comes from a first writing that a crash struck: no state to go back to.
    if (backup.exists() && backup.get_size() == 0 && file(path).get_size() > 0)
        backup.remove(0);
    if (backup.exists()) {
        if (!restore(path))
            return nullptr;
    } else if (!no_backup_) {
        KM_TRACE(trace_info, "common", "Copying to backup file %s", backup.get_path().mbcs_str());
        if (file(path).exists() && !copy_whole(path, backup.get_path()))
            KM_TRACE(trace_warning, "common", "Failed to create the backup file");
    }
    codable* object = _load(path);
    if (!object) {
        const pathname left = backup_of(path);
        KM_TRACE(trace_error, "common", "error during _load, deleting '%s'", left.mbcs_str());
        file(left).remove(0);
    }
    return object;
}

namespace {

// In the order of their names: by priority and time.
std::vector<const file_info*> entries(vector& infos, const pathname& dir, const ustring& prefix) {
    static constexpr const char* km_function_name = "StatusHandler::load";
    file(dir).list_file_info(infos, prefix + ustring(u"*"));
    if (infos.empty())
        KM_TRACE(trace_info, "common", "No message files found");
    std::vector<const file_info*> sorted;
    for (int i = 0; i < infos.size(); ++i)
        sorted.push_back(infos.at<file_info>(i));
    std::sort(sorted.begin(), sorted.end(), [](const file_info* a, const file_info* b) {
        return std::string_view(a->name) < std::string_view(b->name);
    });
    return sorted;
}

// A directory, an empty file, or a name that stands for another path (a backslash would lead out of
// the directory) is no status file.
bool is_usable(const file_info& entry, const pathname& dir) {
    static constexpr const char* km_function_name = "StatusHandler::load";
    if (entry.is_directory())
        return false;
    if (entry.size == 0) {
        KM_TRACE(trace_info, "common", "Found a null size file");
        return false;
    }
    const ustring name(entry.name);
    return (dir + name).get_text() ==
           (dir + ustring(u"x")).get_parent().get_text() + ustring(u"/") + name;
}

} // namespace

// Turns the name of a side file into its status file's. 0: somebody else sees to that.
int StatusHandler::find_status_file(const pathname& dir, ustring& name) {
    KM_TRACE_FUNCTION("StatusHandler::load");
    const bool warning = ends_in(name, u".wrn");
    if (!warning && !ends_in(name, u".bak"))
        return 1;
    const pathname side = dir + name;
    name = without_end(name);
    file status(dir + name);
    // An empty file beside a side file with content: a crash that the disk did not survive whole.
    if (status.exists() && status.get_size() != 0) {
        if (warning)
            KM_TRACE(trace_info, "common", "File '%s' found, skipping wrn...", name.mbcs_str());
        else
            KM_TRACE(trace_info, "common", "File '%s' found, skipping...", name.mbcs_str());
        return 0;
    }
    if (!file(side).rename_to(status.get_path(), 0))
        return 0;
    KM_TRACE(trace_info, "common", "File renamed to '%s'", status.get_path().mbcs_str());
    return 1;
}

void StatusHandler::load_entry(const pathname& dir, const ustring& listed, vector& objects) {
    KM_TRACE_FUNCTION("StatusHandler::load");
    KM_TRACE(trace_info, "common", "Processing file '%s'", listed.mbcs_str());
    ustring name(listed);
    if (!find_status_file(dir, name))
        return;
    if (codable* object = _load_obj(dir + name)) {
        objects.push_back(object);
        return;
    }
    KM_TRACE(trace_warning, "common", "Found a null object file");
    // What could neither be used nor put aside stays: it may be all that is left.
    const bool kept = file(culprits_of(dir) + name).exists() ||
                      file(backup_of(dir + name)).exists() || file(warning_of(dir + name)).exists();
    if (kept && !file(dir + name).remove(0))
        KM_TRACE(trace_error, "common", "Failed to remove '%s'", name.mbcs_str());
}

vector* StatusHandler::load(const pathname& dir, const ustring& prefix) {
    KM_TRACE_FUNCTION("StatusHandler::load");
    vector infos;
    auto objects = std::make_unique<vector>();
    for (const file_info* entry : entries(infos, dir, prefix))
        if (is_usable(*entry, dir))
            load_entry(dir, ustring(entry->name), *objects);
    return objects.release();
}

int warning_exists(const pathname& dir, const ustring& name) {
    KM_TRACE_FUNCTION("warning_exists");
    const ustring warning = name + ustring(u".wrn");
    if (file(dir + warning).exists()) {
        KM_TRACE(trace_info, "common", "found in work_dir");
        return 1;
    }
    if (file(culprits_of(dir) + warning).exists()) {
        KM_TRACE(trace_info, "common", "found in culprits dir");
        return 1;
    }
    return 0;
}

namespace {

void move_off(const pathname& dir, const ustring& name) {
    static constexpr const char* km_function_name = "StatusHandler::load_dir";
    KM_TRACE(trace_info, "common", "moving off %s", name.mbcs_str());
    const pathname culprits = culprits_of(dir);
    file(culprits).mk_tree();
    if (!file(dir + name).rename_to(culprits + name, 1))
        KM_TRACE(trace_error, "common", "Failed to move culprit file");
}

} // namespace

// Bytes that the entry adds to the result.
long StatusHandler::take_entry(const pathname& dir, const ustring& listed, long size,
                               vector& paths) {
    KM_TRACE_FUNCTION("StatusHandler::load_dir");
    if (ends_in(listed, u".wrn")) {
        move_off(dir, listed);
        return 0;
    }
    const bool backup = ends_in(listed, u".bak");
    const ustring name = backup ? without_end(listed) : listed;
    const pathname path = dir + name;
    if (backup) {
        file status(path);
        if (warning_exists(dir, name)) {
            KM_TRACE(trace_warning, "common", "found also a warning file. removing bak");
            file(dir + listed).remove(0);
            return 0;
        }
        if (status.exists() && status.get_size() != 0) {
            KM_TRACE(trace_info, "common", "File '%s' found, skipping...", name.mbcs_str());
            return 0;
        }
        if (!copy_whole(dir + listed, path)) {
            KM_TRACE(trace_error, "common", "unable to copy to %s", path.mbcs_str());
            return 0;
        }
        KM_TRACE(trace_info, "common", "File copied to '%s'", path.mbcs_str());
    }
    if (warning_exists(dir, name)) {
        KM_TRACE(trace_warning, "common", "found also a warning file. removing status file");
        file(path).remove(0);
        file(with_end(path, u"_msg_statuses")).remove(1);
        return 0;
    }
    paths.push_back(path.clone());
    return size;
}

long StatusHandler::load_dir(const pathname& dir, const ustring& prefix, vector& paths) {
    KM_TRACE_FUNCTION("StatusHandler::load_dir");
    vector infos;
    long bytes = 0;
    for (const file_info* entry : entries(infos, dir, prefix))
        if (is_usable(*entry, dir))
            bytes += take_entry(dir, ustring(entry->name), entry->size, paths);
    return bytes;
}

int StatusHandler::load_dir_test(const pathname& dir, const ustring& prefix) {
    KM_TRACE_FUNCTION("StatusHandler::load_dir_test");
    vector infos;
    return static_cast<int>(entries(infos, dir, prefix).size());
}

} // namespace km
