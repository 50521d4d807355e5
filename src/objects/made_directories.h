// made_directories: which directories a package made, known also after a kill
#pragma once

#include <string>

namespace km {

class cm_package;

// Notes, in a file of the package below the working directory, that the package is about to make
// the directory. 1, or 0 with errno: then it must not be made, or it would stay for ever.
int note_made_directory(const cm_package& package, const std::string& path);

// Whether the package noted that directory.
bool made_by(const cm_package& package, const std::string& path);

// Forgets what was read of the notes.
void forget_made_directories();

// The file of the notes: paths, each ended by a NUL.
std::string made_file_of(const std::string& name, const std::string& version);

} // namespace km
