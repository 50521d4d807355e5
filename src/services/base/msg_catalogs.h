// base/msg_catalogs: translated texts from catalogue files
#pragma once

#include <string>

namespace km {

// Text of a catalogue file of the system; false if there is no such file or text. Files are looked
// for along NLSPATH in the language of LC_ALL, LC_MESSAGES or the system, then in its two-letter
// language, and stay open.
bool get_msg(const char* catalogue, int set, long key, std::string& text);
// Forgets all open catalogues.
void my_closeAll();

} // namespace km
