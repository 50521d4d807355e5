// zip_file: central directory of a zip container
#pragma once

#include "fileio.h"
#include "vector.h"
#include "zip_entry.h"

#include <string>

namespace km {

// Reads the directory at the end of a container, for access in any order.
class zip_file : public file_handle {
  public:
    zip_file() = default;
    explicit zip_file(const char* path);
    // 1, or 0 if there is no directory whose place and length agree with the file's.
    int readCEN();
    // A new vector of copies of the entries, the caller's.
    vector* getCEN() const { return new vector(entries_); }
    void set_comment(const char* comment, unsigned long length) {
        comment_.assign(comment, length);
    }
    const std::string& get_comment() const { return comment_; }

  private:
    int checkEND(const unsigned char* record, long at, long block_size, long file_size,
                 long& length, long& offset) const;
    int readEntries(long length, long offset);
    std::string comment_;
    vector entries_;
};

} // namespace km
