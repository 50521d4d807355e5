// base/bind_msg: binding of messages to text
#pragma once

#include "base/mrt_exception.h"
#include "base/msg_supp.h"

namespace km {

// The engine of binding. With a catalogue its text of (set, key) is tried first, else `format`;
// null format gives "*no format string*". A conversion is %n$[l]c, n a path of numbers into the
// value. Bad formats never fail: words in asterisks go into the text. With a null buffer the result
// is malloc memory; else the text is cut at `size` bytes.
char* real_msg_bind(const char* catalogue, const char* format, int set, long key, const any& value,
                    char* buffer, size_t size);

// A message of one entry, and its end.
XOpenMessage* nrx_msg_new(const char* catalogue, long key, const char* text, const any& argument);
void nrx_msg_destroy(XOpenMessage* message);
// All entries, joined by line feeds.
char* nrx_msg_bind(const XOpenMessage* message, char* buffer, size_t size);
// The same with each entry's id in front of its text.
char* znp_msg_bind(const XOpenMessage* message, char* buffer, size_t size);
// Ids of the entries that have a catalogue and a key, joined: "ZNPSE0602". malloc memory.
char* get_MsgId(const XOpenMessage* message);
// One entry.
char* ment_bind(const message_entry& entry, char* buffer, size_t size);
char* msg_bind(const char* catalogue, long key, const char* text, const any& argument);
// The message of a runtime exception.
char* def_ex_bind(const mrt_exception& failure);

// What stands between the outer braces at `from`; `from` moves behind it. False if there are none.
bool get_paren_field(const char*& from, std::string& field);

// Set of a catalogue that holds the texts by key, and the one with facts of the catalogue itself.
constexpr int catalog_info_set = 1;
constexpr int catalog_text_set = 2;
constexpr int catalog_prefix_key = 3;

} // namespace km
