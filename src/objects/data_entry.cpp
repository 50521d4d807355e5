// data_entry: the data of objects in the package's stream, one zip entry per object
// format: docs/formats/package-file.md
// invariant: an entry that belongs to a later command stays open and untouched
#include "data_entry.h"

#include "digest.h"
#include "files_ahead.h"
#include "unzipping_channel.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace km {

namespace {
std::int32_t last_sequence = 0;

struct {
    const unzipping_channel* of = nullptr;
    std::unique_ptr<files_ahead> files;
    std::unique_ptr<inflate_ahead> helper; // ends before `files`
} ahead;

alignment end_of_stream(unzipping_channel& in) {
    switch (in.get_error()) {
    case channel_network:
        return alignment::lost_stream;
    case channel_corrupted: // what follows is no entry: the directory
    case channel_good:
        return alignment::not_ahead;
    default:
        return alignment::damaged;
    }
}
} // namespace

std::string data_entry_name(std::int32_t sequence) {
    char name[16];
    std::snprintf(name, sizeof name, "d/%08d", sequence);
    return name;
}

long data_entry_number(const char* name) {
    if (std::strncmp(name, "d/", 2) != 0)
        return 0;
    char* end = nullptr;
    const long number = std::strtol(name + 2, &end, 10);
    return end && *end == '\0' && number > 0 ? number : 0;
}

std::int32_t next_data_sequence() { return ++last_sequence; }
void restart_data_sequence() { last_sequence = 0; }

alignment align(unzipping_channel& in, std::int32_t sequence) {
    zip_entry* entry = in.current_entry();
    if (!entry || in.is_touched())
        entry = in.get_next_entry();
    for (;; entry = in.get_next_entry()) {
        if (!entry)
            return end_of_stream(in);
        const long number = data_entry_number(entry->get_name());
        if (number == sequence)
            return alignment::mine;
        if (number > sequence)
            return alignment::not_ahead;
    }
}

void begin_data_ahead(const unzipping_channel* in, const char* path, const vector& directory) {
    end_data_ahead();
    ahead.of = in;
    ahead.files = std::make_unique<files_ahead>();
    ahead.helper = std::make_unique<inflate_ahead>(path, directory, digest_of, ahead.files.get());
}

void begin_data_ahead(const unzipping_channel* in, bytes_ahead& stream) {
    end_data_ahead();
    ahead.of = in;
    ahead.files = std::make_unique<files_ahead>();
    ahead.helper = std::make_unique<inflate_ahead>(stream, digest_of, ahead.files.get());
}

void end_data_ahead() {
    ahead.helper.reset();
    ahead.files.reset();
    ahead.of = nullptr;
}

void come_to_files(const unzipping_channel& in, const cm_package& package, const place& where,
                   bool replaces) {
    if (&in == ahead.of && ahead.files->come_to(package, where, replaces))
        ahead.helper->look_again();
}

std::unique_ptr<inflate_ahead::entry_data> take_data_ahead(unzipping_channel& in) {
    if (&in != ahead.of || !in.current_entry() || in.is_touched())
        return nullptr;
    long packed = 0;
    auto data = ahead.helper->take(in.get_bytes_read(), packed);
    if (!data)
        return nullptr;
    in.current_entry()->csize = packed; // so that it is not inflated again
    in.close_entry();
    return data;
}

} // namespace km
