// file_attributes: owner, rights and time of a file that is being written
#pragma once

#include <cstdint>
#include <ctime>
#include <sys/stat.h>

namespace km {

struct file_attributes {
    std::int32_t mode = 0; // twelve bits
    std::int32_t owner = 0;
    std::int32_t group = 0;
    timespec time{}; // of modification
    bool operator==(const file_attributes& other) const;
};

// The mode with which a file that will have these attributes is made: nobody gets a right that he
// will not have.
mode_t mode_while_written(const file_attributes& wanted);

// Gives them to an open file; a caller without privilege keeps the owner as it is. Null, and in
// `inode` that of the file; else what failed ("set the time of"), with errno.
const char* set_attributes(int descriptor, const file_attributes& wanted, ino_t& inode);

} // namespace km
