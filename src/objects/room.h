// room: whether all files of an operation together find place
#pragma once

#include <string>
#include <sys/types.h>

namespace km {

// What an operation needs of one file system, in bytes of whole blocks.
struct room_account {
    std::string at; // a directory there
    unsigned long long free = 0;
    unsigned long long growth = 0;           // of all files together
    unsigned long long largest_replacer = 0; // stands beside what it replaces for a moment
    unsigned long long backup = 0;           // written before the first file

    // A file of `bytes` in the place of one of `replaced`.
    void add(long bytes, long replaced);
    void add_to_backup(long bytes);
    unsigned long long needed(bool with_backup = true) const;
};

// The account of the file system that holds backups: `device`, a directory of it and what is free
// there. False if it cannot be asked.
bool account_of_backups(dev_t& device, room_account& one);

// Begins the accounts anew; called before the checks of an operation.
void forget_room();

// Adds a file of `bytes` below `directory` (an open descriptor; `name` in words), which takes the
// place of one of `replaced` bytes. 1; 0 with errno ENOSPC if the files noted so far do not fit any
// more, `needed` and `free_bytes` in words; 0 with another errno if the file system cannot be
// asked. `with_backup`: what is noted for the backup must find place beside them.
int note_room(int directory, long bytes, long replaced, bool with_backup, std::string& needed,
              std::string& free_bytes);
// The same for `bytes` that the backup takes up; `at` is the directory of it. A backup that does
// not fit is taken out of the account.
int note_backup_room(long bytes, std::string& at, std::string& needed, std::string& free_bytes);
// 0, as above, if files and backup, wholly noted, do not fit together.
int backup_finds_room(std::string& at, std::string& needed, std::string& free_bytes);

// "12.3 MiB".
std::string in_words(unsigned long long bytes);

} // namespace km
