// durable: durable replace, the one place that renames and flushes
#pragma once

#include "pathname.h"

#include <functional>

namespace km {

// Writes the whole content to an open descriptor; 1, or 0 with errno.
using content_writer = std::function<int(int descriptor)>;

// Replaces the file `target` so that a crash leaves the old or the new content, never a part:
// writes a sibling temporary file, flushes it, renames it over the target and flushes the
// directory. Owner and mode of an old target stay; a new file gets `mode`. A symbolic link is
// followed first. 1, or 0 with errno; then the target is as it was and the temporary file is gone.
int replace_durably(const pathname& target, unsigned mode, const content_writer& write);

// The part behind the writing: flushes `temporary` (if `sync` is not 0), renames it over `target`
// and flushes the directory. 1, or 0 with errno.
int rename_durably(const pathname& temporary, const pathname& target, int sync = 1);

// Plain rename without a flush; 1, or 0 with errno.
int rename_file(const char* from, const char* to);

// Flushes a directory, so that names made or removed in it last. What cannot be flushed (EINVAL,
// EROFS) counts as done. 1, or 0 with errno.
int sync_directory(const pathname& directory);

// Makes a directory and its missing parents, each flushed into the one that holds it: what is
// flushed in it later is found after a power cut, too. 1, or 0 with errno.
int make_directories_durably(const pathname& directory);

// Flushes a descriptor; a pipe or terminal counts as done. 1, or 0 with errno.
int sync_descriptor(int descriptor);

// Writes all bytes; 1, or 0 with errno.
int write_fully(int descriptor, const char* bytes, unsigned long count);

} // namespace km
