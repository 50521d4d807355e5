// source_note: where the package of a stream comes from
//
// Written before the first change and kept until the operation has ended: a part of a file is
// completed with the rest of that very file only.
#pragma once

#include "http_stream.h"
#include "outcome.h"
#include "words.h"

#include <map>
#include <optional>
#include <string>

namespace kmhost {

struct source_note {
    std::string address;
    source_identity identity;
    std::string expected;               // digest that the whole file must have; "" any
    std::map<long, std::string> states; // of the digest, by offset; see stream_digest
    bool goes_back = false;             // what was done is taken back where the file has changed
    bool accepts = false;               // the backup goes when the digest was right
};

// False: `result` says why it cannot be written.
bool write_source(const package_id& id, const source_note& note, outcome& result);
std::optional<source_note> source_of(const package_id& id);
void drop_source(const package_id& id);

} // namespace kmhost
