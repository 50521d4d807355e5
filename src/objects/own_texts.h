// own_texts: what a package put into a file, told apart from the file itself
#pragma once

#include <string>

namespace km {

class cm_package;

// The file's bytes without the lines, tokens and items that the package put into it, and without
// what was made around them. False: the package has put nothing there, or the file cannot be read
// as a text.
bool read_without_own_texts(const cm_package& package, const std::string& path, std::string& bytes);

} // namespace km
