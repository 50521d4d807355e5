// program_notes: which programs of a package were started, known also after a kill
#pragma once

#include <string>

namespace km {

// Notes, in the working directory, that the program of a command is about to run in that operation
// ("install", "undo" ...). 1, or 0 with errno. The note stays until the operation has ended, so
// that the same operation, run again after a kill, can tell its programs.
int note_program(const std::string& name, const std::string& version, int index,
                 const std::string& operation);

// Whether such a note stands.
bool program_noted(const std::string& name, const std::string& version, int index,
                   const std::string& operation);

// An operation of the package has come to its end: its notes go. 1, or 0 with errno.
int forget_programs(const std::string& name, const std::string& version);

} // namespace km
