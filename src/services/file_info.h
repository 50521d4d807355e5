// file_info: what is known of one directory entry
#pragma once

#include "codable.h"

namespace km {

// Record of a directory entry. `mode` is its st_mode with the bits of 0xA000 cleared for what is no
// symbolic link and set for one: a plain file loses 0x8000, and a link to a directory is none.
class file_info : public uncoded<codable> {
  public:
    codable* clone() const override { return new file_info(*this); }
    bool is_directory() const { return (mode & 0xF000) == 0x4000; }
    bool is_link() const { return (mode & 0xA000) == 0xA000; }

    char name[1024] = "";
    long modification_time = 0;
    long size = 0;
    unsigned long mode = 0;
};

} // namespace km
