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

class cm_package;
class unzipping_channel;
struct place;

std::string data_entry_name(std::int32_t sequence);
// 0 for what is no data of an object.
long data_entry_number(const char* name);

// The next number of this process, from 1.
std::int32_t next_data_sequence();
// Numbers begin at 1 again: a new package is being built.
void restart_data_sequence();

enum class alignment { mine, not_ahead, lost_stream, damaged };

// Opens the entry of that number, passing over those of commands before it.
alignment align(unzipping_channel& in, std::int32_t sequence);

// A second processor inflates the entries of the container at `path`, which `in` reads from its
// start, makes their SHA-256 and writes files that are due; `directory` holds its zip_entries.
void begin_data_ahead(const unzipping_channel* in, const char* path, const vector& directory);
// The same of a container that arrives: `in` reads it from `stream`.
void begin_data_ahead(const unzipping_channel* in, bytes_ahead& stream);
// Must come before the end of `in`.
void end_data_ahead();

// The walk of the package has come to `where`, and puts files of `in` there: see files_ahead.
void come_to_files(const unzipping_channel& in, const cm_package& package, const place& where,
                   bool replaces);

// The data of the open entry and their digest, if they were inflated ahead; the entry is passed
// over then, and a failure is the channel's. Null: they are to be read.
std::unique_ptr<inflate_ahead::entry_data> take_data_ahead(unzipping_channel& in);

} // namespace km
