// persistent_hashtable_recover: mending of a map's file after a crash
// format: docs/formats/persistent-table.md
// invariant: nothing is cut unless the header and what stands at its offset agree
#include "persistent_hashtable.h"

#include "detail_table_format.h"
#include "file.h"
#include "trclog.h"

#include <fcntl.h>

namespace km {

namespace {

bool reads_at(file_handle& handle, long offset, char* bytes, unsigned long count) {
    return handle.move_from_start(offset) && handle.read(bytes, count) &&
           handle.get_bytes_read() == count;
}

bool header_stands_at(file_handle& handle, long offset) {
    char head[pht::file_header_size];
    return offset >= pht::file_header_size && reads_at(handle, offset, head, sizeof head) &&
           std::memcmp(head, "PHT", 3) == 0;
}

} // namespace

// The copy counts only if it parses to the very end of the file: the log may have grown over it
// since.
bool Persistent_Hashtable::copy_is_whole(const file_handle& handle, long offset) {
    Persistent_Hashtable copy;
    copy.handle_ = handle;
    copy.base_offset_ = offset;
    copy.current_offset_ = offset + pht::file_header_size;
    return copy.load_table() && !copy.stale_tail_ &&
           copy.current_offset_ == copy.handle_.filelength();
}

int Persistent_Hashtable::recover(const pathname& file_name) {
    KM_TRACE_FUNCTION("Persistent_Hashtable::recover");
    if (!file(file_name).exists())
        return 1;
    file_handle handle(file_name, O_RDWR);
    char head[pht::file_header_size];
    if (handle.get_state())
        return 0;
    if (!reads_at(handle, 0, head, sizeof head) || std::memcmp(head, "PHT", 3) != 0)
        return 1; // opening tells what is wrong with it
    const auto state = pht::get<std::uint16_t>(head + 3);
    const long offset = pht::get<std::uint32_t>(head + 5);
    if (state != copying && state != copied)
        return 1;
    Persistent_Hashtable table;
    table.handle_ = handle;
    table.current_offset_ = pht::file_header_size;
    if (header_stands_at(handle, offset)) {
        if (state == copied && copy_is_whole(handle, offset))
            return table.second_phase(offset);
        if (state == copying && !table.latch(table.handle_.chsize(offset)))
            return 0;
    }
    return table.write_file_header(normal, 0) && table.latch(table.handle_.flush());
}

} // namespace km
