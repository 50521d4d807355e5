// base/spcatalog: table of the message texts
#pragma once

namespace km {

// Default texts by message key; index 0 is the catalogue's name. The first character of a text is
// its severity (E, W, I), a blank follows. Arguments are positional: %1$s. Keys without a text of
// their own are reserved: their texts are "unused" and a number, and nobody may depend on them.
//
// 646 keys have texts: 393 errors, 69 warnings, 164 informations and 20 labels without a severity;
// 159 are reserved, "unused000" to "unused158" in the order of their keys.
constexpr int spcatalog_size = 806;

// How the texts stand in the sources.
struct message_row {
    int key;
    const char* text;
};

extern const char* const spcatalog[spcatalog_size];

// 1 if the key has a text of its own.
int is_spcatalog_key(long key);

} // namespace km
