// present_object: what stands at a path, as an object that can bring it back
// no format
// invariant: what cannot be brought back is refused, never passed over
#include "present_object.h"

#include "directory_object.h"
#include "file_object.h"
#include "link_object.h"
#include "made_directories.h"
#include "object_messages.h"
#include "room.h"

#include <cerrno>
#include <memory>
#include <unistd.h>

namespace km {

namespace {
std::unique_ptr<km_object> of_kind(const struct stat& about) {
    switch (about.st_mode & S_IFMT) {
    case S_IFREG:
        return std::make_unique<km_file>();
    case S_IFDIR:
        return std::make_unique<km_directory>();
    case S_IFLNK:
        return std::make_unique<km_link>();
    default:
        return nullptr;
    }
}

cm_result no_room(const km_object& of, const std::string& at, const std::string& needed,
                  const std::string& free_bytes) {
    tell(of.package, om_no_room, at, needed, free_bytes);
    return cm_command::temporary_failure;
}
} // namespace

km_object* object_of_present(km_object& of) {
    struct stat about {};
    if (!look_at(of.path_bytes(), about)) {
        of.fail("look at", of.path_bytes(), errno);
        return nullptr;
    }
    auto made = of_kind(about);
    if (!made) {
        of.fail(om_special, of.path_bytes());
        return nullptr;
    }
    made->path = of.path;
    made->package = of.package;
    made->created = of.created || (of.package && made_by(*of.package, of.path_bytes()));
    made->take_metadata(about);
    if (auto* file = dynamic_cast<km_file*>(made.get())) {
        file->size = about.st_size;
        if (const auto* seen = dynamic_cast<const km_file*>(&of))
            file->take_what_was_read(*seen);
        std::string at, needed, free_bytes;
        if (!backup_finds_room(at, needed, free_bytes)) {
            of.result = no_room(of, at, needed, free_bytes);
            return nullptr;
        }
    }
    if (auto* link = dynamic_cast<km_link*>(made.get())) {
        std::string text;
        if (!read_link(of.path_bytes(), text)) {
            of.fail("read the link", of.path_bytes(), errno);
            return nullptr;
        }
        link->target = ustring(text.c_str());
    }
    return made.release();
}

cm_result can_read_present(km_object& of) {
    struct stat about {};
    const std::string& path = of.path_bytes();
    if (!look_at(path, about))
        return of.fail("look at", path, errno);
    if (S_ISREG(about.st_mode)) {
        const auto* file = dynamic_cast<const km_file*>(&of);
        if (!(file && file->has_read(about))) {
            const int in = open_for_reading(path);
            if (in < 0)
                return of.fail("read", path, errno);
            ::close(in);
        }
        std::string at, needed, free_bytes;
        if (!note_backup_room(about.st_size, at, needed, free_bytes))
            return of.result = no_room(of, at, needed, free_bytes);
    } else if (S_ISLNK(about.st_mode)) {
        std::string text;
        if (!read_link(path, text))
            return of.fail("read the link", path, errno);
    } else if (!S_ISDIR(about.st_mode)) {
        return of.fail(om_special, path);
    }
    return of.result = cm_command::success;
}

} // namespace km
