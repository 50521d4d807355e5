// made_directories: what a package made or put into files of others, known also after a kill
#pragma once

#include <string>

namespace km {

class cm_package;

// A check found that the package will have to make the directory: it is noted, and flushed, with
// the first that is made, since a flush for each would cost more than the directories.
void expect_made_directory(const cm_package& package, const std::string& path);

// Notes, in a file of the package below the working directory, that the package is about to make
// the directory, and flushes the note. 1, or 0 with errno: then it must not be made, or it would
// stay for ever.
int note_made_directory(const cm_package& package, const std::string& path);

// Whether the package noted that directory, or a package that is gone left it behind because others
// still used it.
bool made_by(const cm_package& package, const std::string& path);

// Notes, on disk, that the package is about to put a text into a file of somebody else. `key` is
// the path of the file, ": " and more; `former` is what goes for it. What a key was noted with
// first stands. 1, or 0 with errno: then the file must not be changed.
int note_text(const cm_package& package, const std::string& key, const std::string& former);

// Whether the package noted that, or one that is gone left it behind; `former` (may be null) takes
// what was noted with it.
bool text_noted_by(const cm_package& package, const std::string& key, std::string* former);

// The text is out again: nobody's note of it stands. 1, or 0 with errno.
int drop_text_note(const cm_package& package, const std::string& key);

// A package is gone: its notes go, and what of them still stands is left to whoever takes the
// last thing out of a directory, or brings the same text. 1, or 0 with errno: the notes are still
// there then.
int hand_over_made_directories(const std::string& name, const std::string& version);

// Removes those of its directories that are empty: an install that failed between a directory and
// its contents has no command that would.
void remove_empty_made_directories(const std::string& name, const std::string& version);

// Forgets directories left behind that are gone by now. 1, or 0 with errno.
int prune_left_directories();

// Forgets what was read of the notes.
void forget_made_directories();

// The file of the notes: each ended by a NUL; empty ones mean nothing.
std::string made_file_of(const std::string& name, const std::string& version);

} // namespace km
