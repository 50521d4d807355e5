// persistent_hashtable_defrag: rewriting of a map's file without gaps
// format: docs/formats/persistent-table.md
//
// First phase: a whole table of the live slots is written behind the log (header state 0xBBBB), and
// the log stays as it was. Second phase (0xCCCC): the copy is moved to the start. A crash in the
// first leaves the log, one in the second the copy; recover() takes the one that is whole.
// invariant: what a header promises is on disk before the header is written
#include "persistent_hashtable.h"

#include "codec.h"
#include "decode_channel.h"
#include "detail_table_format.h"
#include "kill_point.h"
#include "trclog.h"

namespace km {

namespace {
std::uint32_t slot_start(const HashtableEntry* entry) { return entry->reserved[0]; }
} // namespace

// Puts the live slots of another table of the same file behind this table's header.
void Persistent_Hashtable::take_copy(const Persistent_Hashtable& source) {
    if (!handle_.is_open()) {
        base_offset_ = source.current_offset_;
        handle_ = source.handle_;
        if (!write_file_header(normal, 0))
            return;
    }
    current_offset_ = base_offset_ + pht::file_header_size;
    copy_target_ = source.copy_target_;
    for (Keyslist keys(source); keys.hasMoreElements() && !table_error_;) {
        const HashtableEntry* entry = keys.next_entry();
        // From the file, as a load would: what stands in memory is no proof of what was written.
        file_handle twin(source.handle_);
        if (!twin.move_from_start(static_cast<long>(slot_start(entry)) + pht::slot_header_size)) {
            fail(seek_error);
            return;
        }
        buffered_input_channel bytes(new file_input_channel(twin), 4096);
        bytes.inhibit(1);
        decode_channel channel(&bytes);
        decoder coder(&channel);
        std::unique_ptr<codable> key(coder.take_owned_object<codable>());
        std::unique_ptr<codable> value;
        if (coder.get_status() == 0)
            value.reset(coder.take_owned_object<codable>());
        if (coder.get_status() || !key || !value) {
            fail(corrupted);
            return;
        }
        if (put(key.get(), value.get()))
            key.release(), value.release();
    }
}

int Persistent_Hashtable::first_phase(long offset) {
    KM_TRACE(trace_info, "common", "defragment first phase");
    if (!write_file_header(copying, offset) || !latch(handle_.flush()))
        return 0;
    KM_KILL_POINT("table.defrag.copying");
    {
        // Slots of the copy need no flush of their own: one flush covers them all.
        Persistent_Hashtable temp;
        temp.sync_ = 0;
        temp = *this;
        if (temp.table_error_)
            return fail(temp.table_error_);
    }
    KM_KILL_POINT("table.defrag.before_copied");
    return latch(handle_.flush()) && write_file_header(copied, offset) && latch(handle_.flush());
}

int Persistent_Hashtable::second_phase(long offset) {
    KM_TRACE(trace_info, "common", "defragment second phase");
    KM_KILL_POINT("table.defrag.copied");
    Persistent_Hashtable temp(handle_, offset);
    if (temp.table_error_)
        return fail(temp.table_error_);
    std::unique_ptr<semaphore> lock = std::move(lock_);
    if (lock)
        KM_TRACE(trace_info, "common", "old lock pointer =%p", static_cast<void*>(lock.get()));
    const unsigned long threshold = free_threshold_;
    const int sync = sync_;
    sync_ = 0;
    *this = temp;
    sync_ = sync;
    free_threshold_ = threshold;
    lock_ = std::move(lock);
    if (table_error_)
        return 0;
    KM_KILL_POINT("table.defrag.moved");
    // The start is on disk before the copy goes, and the copy goes before the header forgets it.
    if (!latch(handle_.flush()) || !latch(handle_.chsize(current_offset_)))
        return 0;
    KM_KILL_POINT("table.defrag.cut");
    return write_file_header(normal, 0) && latch(handle_.flush());
}

int Persistent_Hashtable::defragment(std::uint16_t phase, long offset) {
    KM_TRACE_FUNCTION("Persistent_Hashtable::defragment");
    if (table_error_)
        return 0;
    if (phase == copying && !first_phase(offset))
        return 0;
    return second_phase(offset);
}

} // namespace km
