// file: a name in the file system and its operations
// no format
// invariant: no operation follows a link in order to remove
#include "file.h"

#include "durable.h"
#include "fileio.h"
#include "tokenizer.h"
#include "trclog.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace km {

namespace {

bool path_is_empty(const pathname& path) {
    if (!path.get_text().empty())
        return false;
    KM_TRACE(trace_warning, "common", "The path is empty");
    return true;
}

} // namespace

int file::keep(int error) {
    error_ = error;
    return 0;
}

int file::exists() {
    KM_TRACE_FUNCTION_OFTEN("file::exists");
    if (path_is_empty(path_))
        return 0;
    if (::access(path_.mbcs_str(), F_OK) == 0)
        return 1;
    const int error = errno;
    if (error != ENOENT && error != EINVAL && error != EACCES)
        return 1;
    KM_TRACE(trace_return, "common", "Access failed with errno = %d", error);
    KM_TRACE(trace_return, "common", "message = '%s' ...", std::strerror(error));
    return keep(error);
}

int file::exists_in_path() {
    KM_TRACE_FUNCTION("file::exists_in_path");
    if (path_is_empty(path_))
        return 0;
    const ustring name = path_.get_file();
    if (name.length() < path_.get_text().length())
        return exists();
    const char* text = std::getenv("PATH");
    if (!text) {
        KM_TRACE(trace_warning, "common", "PATH is empty!");
        return 0;
    }
    tokenizer words(new string_reader(ustring(text)));
    words.reset_syntax();
    words.set_word_chars(0x20, 0xFF);
    words.set_whitespace_chars(':', ':');
    while (words.next_token() == tokenizer::t_word) {
        const pathname candidate = pathname(words.sval) + name;
        if (::access(candidate.mbcs_str(), F_OK) == 0) {
            KM_TRACE(trace_info, "common", "file %s found as %s", name.mbcs_str(),
                     candidate.mbcs_str());
            return 1;
        }
    }
    return 0;
}

int file::can_write() { return !path_is_empty(path_) && ::access(path_.mbcs_str(), W_OK) == 0; }

int file::can_read() { return !path_is_empty(path_) && ::access(path_.mbcs_str(), R_OK) == 0; }

int file::can_create_path() {
    file here(path_);
    for (;;) {
        if (here.exists())
            return !here.is_file();
        if (!here.path_.is_absolute())
            return 1;
        if (here.path_.is_root())
            return 0;
        --here.path_;
    }
}

int file::is_file() {
    struct stat about {};
    return ::stat(path_.mbcs_str(), &about) == 0 && (about.st_mode & 0xF000) == 0x8000;
}

int file::is_directory() {
    struct stat about {};
    return ::stat(path_.mbcs_str(), &about) == 0 && (about.st_mode & 0x4000) != 0;
}

int file::is_link() {
    KM_TRACE_FUNCTION_OFTEN("file::is_link");
    char one = 0;
    if (::readlink(path_.mbcs_str(), &one, 1) != -1 || errno == ERANGE)
        return 1;
    const int error = errno;
    KM_TRACE(trace_warning, "common",
             "The path '%s' is not a symbolic link or it does not exist. errno is: %d",
             path_.mbcs_str(), error);
    return keep(error);
}

int file::is_locked(int) {
    KM_TRACE_FUNCTION("file::is_locked");
    if (!exists())
        return 0;
    unsigned long mode = 0;
    bool changed = false;
    if (!can_write()) {
        get_file_attributes(mode);
        if (!set_write()) {
            KM_TRACE(trace_warning, "common", "set_write() failed... File could be Locked");
            return 1;
        }
        changed = true;
    }
    file_handle handle(path_, O_WRONLY);
    const int error = handle.get_state() ? handle.get_system_error() : 0;
    int locked = error == EACCES || error == ETXTBSY;
    if (locked)
        KM_TRACE(trace_warning, "common", "File is locked..");
    if (changed) {
        handle.close();
        if (!set_file_attributes(mode & 07777))
            locked = 0;
    }
    return locked;
}

int file::set_write() {
    KM_TRACE_FUNCTION("file::set_write");
    unsigned long mode = 0;
    if (!get_file_attributes(mode)) {
        KM_TRACE(trace_warning, "common", "get_file_attributes() failed..");
        return 0;
    }
    if (!set_file_attributes((mode & 07777) | 0x1C0)) {
        KM_TRACE(trace_warning, "common", "set_write() failed..");
        return 0;
    }
    KM_TRACE(trace_info, "common", "We now have write permissions on the file");
    return 1;
}

long file::references() {
    struct stat about {};
    return ::stat(path_.mbcs_str(), &about) == 0 ? static_cast<long>(about.st_nlink) : -1;
}

long file::get_size() {
    struct stat about {};
    if (::stat(path_.mbcs_str(), &about) != 0)
        return -1;
    return (about.st_mode & 0xF000) == 0x4000 ? 0 : static_cast<long>(about.st_size);
}

int file::mk_dir() {
    KM_TRACE_FUNCTION("file::mk_dir");
    if (exists())
        return 1;
    if (::mkdir(path_.mbcs_str(), 0777) == 0)
        return 1;
    const int error = errno;
    KM_TRACE(trace_error, "common", "Failed to create directory '%s'. errno = %d", path_.mbcs_str(),
             error);
    return keep(error);
}

int file::mk_tree() {
    KM_TRACE_FUNCTION("file::mk_tree");
    if (!path_.is_valid()) {
        KM_TRACE(trace_error, "common", " %s is NOT a valid path !!! ", path_.mbcs_str());
        return 0;
    }
    if (exists() || mk_dir())
        return 1;
    if (!get_volume().exists())
        return 0;
    file parent(path_.get_parent());
    if (parent.path_.get_text().empty() || parent.path_ == path_)
        return 0;
    return parent.mk_tree() && mk_dir();
}

int file::rename_to(const pathname& new_path, int copy_on_failure) {
    KM_TRACE_FUNCTION("file::rename_to");
    const pathname target(new_path); // it may be this file's own path
    unsigned long mode = 0;
    const int has_mode = get_file_attributes(mode);
    if (!rename_file(path_.mbcs_str(), target.mbcs_str())) {
        keep(errno);
        KM_TRACE(trace_error, "common", "Cannot rename from '%s' to '%s'. errno = %d",
                 path_.mbcs_str(), target.mbcs_str(), error_);
        if (!copy_on_failure) {
            KM_TRACE(trace_error, "common", "Rename from '%s' to '%s' failed...", path_.mbcs_str(),
                     target.mbcs_str());
            return 0;
        }
        file copied(target);
        if (!copy(copied, 0)) {
            KM_TRACE(trace_error, "common", "Copy file <%s> to <%s> failed", path_.mbcs_str(),
                     target.mbcs_str());
            return 0;
        }
        if (!remove(1)) {
            KM_TRACE(trace_error, "common", "Remove file <%s> failed", path_.mbcs_str());
            return 0;
        }
    }
    path_ = target;
    if (has_mode)
        set_file_attributes(mode & 07777);
    return 1;
}

bool file::is_same(const file& other) const {
    struct stat one {
    }, two{};
    return ::stat(path_.mbcs_str(), &one) == 0 && ::stat(other.path_.mbcs_str(), &two) == 0 &&
           one.st_dev == two.st_dev && one.st_ino == two.st_ino;
}

int file::copy_content(file& target) {
    if (is_same(target))
        return 1; // opening the target would empty the source
    file_handle from(path_, O_RDONLY);
    if (from.get_state()) {
        KM_TRACE(trace_error, "common", "Failed to open source file '%s' for copy.",
                 path_.mbcs_str());
        return keep(from.get_system_error());
    }
    file_handle to(target.path_, O_WRONLY | O_CREAT | O_TRUNC);
    if (to.get_state()) {
        KM_TRACE(trace_error, "common", "Failed to open target file '%s' for copy.",
                 target.path_.mbcs_str());
        return keep(to.get_system_error());
    }
    char block[65536];
    do {
        if (!from.read(block, sizeof block) || !to.write(block, from.get_bytes_read()))
            break;
    } while (from.get_bytes_read());
    if (from.get_state() == 0 && to.get_state() == 0 && to.close())
        return 1;
    KM_TRACE(trace_error, "common", "Unexpected error while writing to target file '%s'",
             target.path_.mbcs_str());
    keep(from.get_state() ? from.get_system_error() : to.get_system_error());
    if (target.is_link() || target.is_file()) // never a device
        ::unlink(target.path_.mbcs_str());
    return 0;
}

int file::copy_children(file& target) {
    vector names;
    int done = list(names, ustring(u"*"));
    for (int i = 0; i < names.size(); ++i) {
        file child(path_ + *names.at<ustring>(i)), to(target.path_ + *names.at<ustring>(i));
        if (!child.copy(to, 0)) {
            KM_TRACE(trace_error, "common", "Failed to copy file '%s' to '%s'. errno = %d",
                     child.path_.mbcs_str(), to.path_.mbcs_str(), child.error_);
            done = keep(child.error_);
        }
    }
    return done;
}

int file::copy(file& target, int recurse) {
    KM_TRACE_FUNCTION("file::copy");
    unsigned long mode = 0;
    const int has_mode = get_file_attributes(mode);
    if (is_directory()) {
        if (!target.mk_dir()) {
            KM_TRACE(trace_error, "common", "Failed to create directory. errno = %d",
                     target.error_);
            return keep(target.error_);
        }
        if (recurse && !copy_children(target))
            return 0;
    } else if (!copy_content(target)) {
        return 0;
    }
    if (has_mode)
        target.set_file_attributes(mode & 07777);
    return 1;
}

ustring file::get_version() {
    KM_TRACE_FUNCTION("file::get_version");
    const ustring none;
    KM_TRACE(trace_info, "common", "file %s version is '%s'", path_.mbcs_str(), none.mbcs_str());
    return none;
}

ustring file::convert_to_zip_format(const char* name) {
    ustring text(name);
    struct stat about {};
    if (::stat(name, &about) == 0 && (about.st_mode & 0xF000) == 0x4000 &&
        (text.empty() || text[text.length() - 1] != u'/'))
        text += u'/';
    return text;
}

ustring file::convert_to_pathname(const char* name) { return pathname(name).get_text(); }

int file::compare_pathnames(const void* a, const void* b) {
    const auto* first = *static_cast<const pathname* const*>(a);
    const auto* second = *static_cast<const pathname* const*>(b);
    return first->get_text().compare(second->get_text());
}

} // namespace km
