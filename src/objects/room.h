// room: whether all files of an operation together find place
#pragma once

#include <string>
#include <sys/types.h>

namespace km {

// Begins the account anew; called before the checks of an operation.
void forget_room();

// Adds a file of `bytes` below `directory` (an open descriptor), which takes the place of one of
// `replaced` bytes. 1; 0 with errno ENOSPC if the files noted so far do not fit any more, `needed`
// and `free_bytes` in words; 0 with another errno if the file system cannot be asked.
int note_room(int directory, long bytes, long replaced, std::string& needed,
              std::string& free_bytes);

// "12.3 MiB".
std::string in_words(unsigned long long bytes);

} // namespace km
