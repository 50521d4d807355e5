// data_entry: the data of objects in the package's stream, one zip entry per object
//
// Entries are named "d/" and eight digits, rising in tree order. So an object can tell from the
// number whether the entry ahead is its own, belongs to a command that was passed over, or to one
// that follows.
#pragma once

#include "inflate_ahead.h"

#include <cstdint>
#include <memory>
#include <string>

namespace km {

class unzipping_channel;

std::string data_entry_name(std::int32_t sequence);

// The next number of this process, from 1.
std::int32_t next_data_sequence();
// Numbers begin at 1 again: a new package is being built.
void restart_data_sequence();

enum class alignment { mine, not_ahead, lost_stream, damaged };

// Opens the entry of that number, passing over those of commands before it.
alignment align(unzipping_channel& in, std::int32_t sequence);

// Somebody inflates the entries of the container that `in` reads from its start, and makes their
// SHA-256; null ends that,
// and must come before the end of `in`.
void set_data_ahead(const unzipping_channel* in, std::unique_ptr<inflate_ahead> helper);

// The data of the open entry and their digest, if they were inflated ahead; the entry is passed
// over then, and a failure is the channel's. Null: they are to be read.
std::unique_ptr<inflate_ahead::entry_data> take_data_ahead(unzipping_channel& in);

} // namespace km
