// read_ahead: digests of files that will be asked for, made by a second processor
#pragma once

#include <ctime>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace km {

// A file that was looked into. Its inode tells of every later change.
struct known_file {
    bool known = false;
    dev_t device = 0;
    ino_t inode = 0;
    timespec changed{};
    bool is(const struct stat& about) const;
    void set(const struct stat& about);
};

// The digest of what the open file holds in its first `size` bytes; empty, with errno, if it cannot
// be read. `known` is set where a file of the same inode and time of change holds the same for
// sure: one that changed a moment ago may change again within the same tick of its clock.
std::string digest_of_known_file(int descriptor, long size, known_file& known);

// Goes through the files, below the target root, from the last to the first, while somebody else
// goes through them in whatever order. Once in a process: a later call is passed over. The files of
// very large packages beyond the first thousands are left to whoever asks.
void begin_to_read_ahead(const std::vector<std::string>& paths);
bool began_to_read_ahead();

// What was read of the file ahead of the caller, or is read at this moment. False: the caller has
// to look himself, and nobody else will.
bool take_read_ahead(const std::string& path, known_file& known, std::string& digest);

// Before the first file is changed. Nothing is opened any more once this returns.
void stop_reading_ahead();

} // namespace km
