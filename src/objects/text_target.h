// text_target: the file in which a text stands, behind all links, and its replacement
//
// The file is replaced whole: a temporary name beside it, its owner, mode, access list and other
// extended attributes, a flush, a rename. A kill or a power cut leaves the old or the new bytes.
// Links are followed inside the target root. A further hard link of the file keeps the old bytes.
#pragma once

#include "text_bytes.h"

#include <string>
#include <sys/stat.h>

namespace km {

// Why something did not work: "cannot WHAT PATH" with an errno, or a reason in words.
struct text_fault {
    const char* what = nullptr; // null: there is none
    std::string path;
    int error = 0;
    std::string reason;   // where there is no errno
    bool passing = false; // may work later

    explicit operator bool() const { return what || !reason.empty(); }
};

class text_target {
  public:
    static constexpr long longest = 64L * 1024 * 1024;

    text_target() = default;
    ~text_target();
    text_target(const text_target&) = delete;
    text_target& operator=(const text_target&) = delete;

    // Follows the links of the absolute path.
    text_fault find(const std::string& path);
    // The same, and takes the bytes of the file. No file is no fault: is_there()
    // tells. Faults: what cannot be reached or read, no file, a NUL in it, more than `longest`.
    text_fault open(const std::string& path, text_bytes& out);
    bool is_there() const { return there_; }
    // The path without links.
    const std::string& path() const { return path_; }
    long size() const { return there_ ? static_cast<long>(about_.st_size) : 0; }

    // Takes the lock that programs agree upon (flock) until the end of this object; a fault that
    // passes where somebody else holds it, or a record lock, on the file.
    text_fault lock();
    // Whether write() would be let.
    text_fault may_write() const;
    // Writes the bytes to `temporary` beside the file and renames it. A file that was not there
    // gets mode 0644. A fault that passes where the file is not what was opened any more.
    text_fault write(const std::string& bytes, const std::string& temporary);
    text_fault unlink();
    // What a kill left of a write.
    void drop(const std::string& temporary) const;

  private:
    text_fault read(text_bytes& out);
    text_fault give_attributes(int out, const std::string& shown) const;
    text_fault copy_extended(int out, const std::string& shown) const;
    bool is_changed() const;

    std::string path_;
    bool there_ = false;
    struct stat about_ {};
    int file_ = -1;
};

} // namespace km
