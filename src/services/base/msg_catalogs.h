// base/msg_catalogs: translated texts from catalogue files
#pragma once

#include <string>

namespace km {

// Text of a catalogue file of the system; false if there is no such file or text. Files are looked
// for along NLSPATH in the language of LC_ALL, LC_MESSAGES or the system, then in its two-letter
// language, and stay open.
bool get_msg(const char* catalogue, int set, long key, std::string& text);
// The catalogue of the name: a number for my_catgets(), or -1. A name with a '/' is opened as it
// stands; another is looked for as told above, the first file that can be opened wins. `flag` is
// that of catopen() and changes nothing.
int my_catopen(const char* catalogue, int flag);
// The text, valid until the next catalogue is opened or all are closed, or `missing`.
const char* my_catgets(int catalogue, int set, long key, const char* missing);
// Opens the file of the path, once: its number, or -1 if it is no catalogue; a file that is not
// there now may be later.
int my_addCat(const char* path);
// The number of a path that is open, -1 if none.
int my_cacheIndex(const char* path);
// The search path where NLSPATH is not set or empty, in the form of NLSPATH; a program that brings
// its own catalogues says so here. Null: the usual one.
void my_set_default_path(const char* path);
// Forgets all open catalogues; numbers of before mean nothing.
void my_closeAll();

} // namespace km
