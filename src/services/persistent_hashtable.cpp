// persistent_hashtable: map kept in a file, slot by slot
// format: docs/formats/persistent-table.md
// invariants: current_offset is the end of the committed log; the map equals what a load of the
// file would give; a slot's data are on disk before its mark is written
#include "persistent_hashtable.h"

#include "codec.h"
#include "decode_channel.h"
#include "detail_table_format.h"
#include "encode_channel.h"
#include "kill_point.h"
#include "trclog.h"

#include <algorithm>
#include <unistd.h>

namespace km {

namespace {
constexpr unsigned long usual_threshold = 10000;
constexpr int read_block = 65536;
} // namespace

// Reads the log in large blocks and still knows the exact place behind every byte taken.
class Persistent_Hashtable::log_reader : public input_channel {
  public:
    log_reader(const file_handle& handle, long at)
        : descriptor_(handle.get_descriptor()), at_(at), block_(new unsigned char[read_block]) {
        inhibit(1);
    }
    long position() const { return at_; }
    void set_position(long at) {
        const long back = at_ - at;
        at_ = at;
        next_ -= static_cast<int>(back);
        if (next_ < 0 || next_ > count_)
            next_ = count_ = 0;
    }
    int read() override {
        if (next_ == count_ && !fill())
            return -1;
        ++at_;
        return block_[static_cast<size_t>(next_++)];
    }
    int read(unsigned char* buffer, int length) override {
        if (length < 1)
            return 0;
        if (next_ == count_ && !fill())
            return -1;
        const int got = std::min(length, count_ - next_);
        std::memcpy(buffer, block_.get() + next_, static_cast<size_t>(got));
        next_ += got;
        at_ += got;
        return got;
    }
    int get_error() override { return error_; }
    // Up to `length` bytes; how many came.
    int read_up_to(char* buffer, int length) {
        int have = 0;
        for (int got; have < length; have += got)
            if ((got = read(reinterpret_cast<unsigned char*>(buffer) + have, length - have)) < 1)
                break;
        return have;
    }

  private:
    bool fill() {
        const ssize_t got = ::pread(descriptor_, block_.get(), read_block, at_);
        if (got < 0)
            error_ = file_handle::read_failed;
        next_ = 0;
        count_ = got > 0 ? static_cast<int>(got) : 0;
        return count_ > 0;
    }
    int descriptor_;
    long at_;
    std::unique_ptr<unsigned char[]> block_;
    int next_ = 0;
    int count_ = 0;
    int error_ = 0;
};

Persistent_Hashtable::Persistent_Hashtable()
    : Hashtable(21, 0.75F), last_slot_mark_(pht::committed), free_threshold_(usual_threshold) {}

Persistent_Hashtable::Persistent_Hashtable(const pathname& file_name, int lock, int no_sync,
                                           pathname* copy_target)
    : Persistent_Hashtable() {
    KM_TRACE_FUNCTION("Persistent_Hashtable::Persistent_Hashtable");
    file_name_ = file_name;
    copy_target_ = copy_target;
    if (lock) {
        KM_TRACE(trace_info, "common", "locked catalog");
        lock_ = std::make_unique<semaphore>(file_name, 0);
        if (lock_->wait2(-1) != semaphore::acquired) {
            KM_TRACE(trace_error, "common", "Cannot lock the file '%s'", file_name.mbcs_str());
            table_error_ = cannot_lock;
            return;
        }
    } else {
        KM_TRACE(trace_info, "common", "catalog not locked");
    }
    open(file_name, no_sync);
}

void Persistent_Hashtable::open(const pathname& file_name, int no_sync) {
    handle_.open(file_name);
    if (handle_.get_state()) {
        table_error_ = cannot_open;
        return;
    }
    sync_ = no_sync == 0;
    if (no_sync) {
        KM_TRACE(trace_info, "common", "Disabling data sync on %ld",
                 static_cast<long>(handle_.get_descriptor()));
        handle_.set_sync(0);
    }
    if (handle_.filelength() == 0)
        write_file_header(normal, 0);
    else
        check_file_header();
    if (table_error_)
        return;
    current_offset_ = pht::file_header_size;
    if (state_ == copied)
        defragment(copied, header_offset_);
    else if (load_table() && state_ == copying)
        defragment(copying, header_offset_);
}

Persistent_Hashtable::Persistent_Hashtable(const file_handle& handle, long offset)
    : Persistent_Hashtable() {
    handle_ = handle;
    base_offset_ = offset;
    if (!write_file_header(normal, 0))
        return;
    current_offset_ = base_offset_ + pht::file_header_size;
    load_table();
}

Persistent_Hashtable::Persistent_Hashtable(const Persistent_Hashtable& source)
    : Persistent_Hashtable() {
    take_copy(source);
    sync_ = source.sync_;
    copy_target_ = nullptr;
}

Persistent_Hashtable& Persistent_Hashtable::operator=(const Persistent_Hashtable& source) {
    if (this == &source)
        return *this;
    state_ = normal;
    header_offset_ = 0;
    free_size_ = 0;
    free_threshold_ = usual_threshold;
    lock_.reset();
    if (table_error_ == 0)
        Hashtable::init(21, 0.75F);
    take_copy(source);
    return *this;
}

Persistent_Hashtable::~Persistent_Hashtable() { handle_.close(); }

int Persistent_Hashtable::fail(int error) {
    if (!table_error_)
        table_error_ = error;
    return 0;
}

int Persistent_Hashtable::latch(int done) {
    return done && handle_.get_state() == 0
               ? 1
               : fail(handle_.get_state() ? handle_.get_state() : write_error);
}

int Persistent_Hashtable::close() { return table_error_ == 0 && handle_.close(); }

int Persistent_Hashtable::check_file_header() {
    char head[pht::file_header_size];
    const bool whole = handle_.move_from_start(0) && handle_.read(head, sizeof head) &&
                       handle_.get_bytes_read() == sizeof head;
    const auto state = whole ? pht::get<std::uint16_t>(head + 3) : std::uint16_t{0};
    if (!whole || std::memcmp(head, "PHT", 3) != 0 ||
        (state != normal && state != copying && state != copied)) {
        KM_TRACE(trace_error, "common", "error reading header, the file is corrupted");
        return fail(corrupted);
    }
    header_offset_ = pht::get<std::uint32_t>(head + 5);
    // What the header tells of an interrupted rewriting is recover()'s; a load takes the plain log.
    state_ = normal;
    return 1;
}

int Persistent_Hashtable::write_file_header(std::uint16_t state, long offset) {
    char head[pht::file_header_size] = {'P', 'H', 'T'};
    pht::put(head + 3, state);
    pht::put(head + 5, static_cast<std::uint32_t>(offset));
    return latch(handle_.move_from_start(base_offset_) && handle_.write(head, sizeof head));
}

int Persistent_Hashtable::write_slot_header(long size, std::uint16_t status) {
    char head[pht::slot_header_size];
    pht::put(head, pht::uncommitted);
    pht::put(head + 2, static_cast<std::uint32_t>(size));
    pht::put(head + pht::status_place, status);
    last_slot_mark_ = pht::uncommitted;
    return latch(handle_.write(head, sizeof head));
}

// A load that ended in front of the file's end left bytes there which a shorter slot would not
// cover: the next load would take the rest of them for slots.
int Persistent_Hashtable::cut_stale_tail() {
    if (!stale_tail_)
        return 1;
    stale_tail_ = false;
    return latch(handle_.chsize(current_offset_));
}

int Persistent_Hashtable::write_slot(const codable& key, const codable& value,
                                     std::uint32_t& size) {
    KM_TRACE_FUNCTION("Persistent_Hashtable::write_slot");
    const long start = current_offset_;
    if (!write_slot_header(0, pht::busy)) {
        KM_TRACE(trace_error, "common", "Error writing header");
        return 0;
    }
    {
        file_output_channel out(handle_);
        if (!sync_)
            KM_TRACE(trace_info, "common", "Setting no_sync on %ld",
                     static_cast<long>(handle_.get_descriptor()));
        out.set_sync_data(sync_);
        encode_channel channel(&out);
        encoder coder(&channel);
        coder.encode_object(&key).encode_object(&value);
        KM_TRACE(trace_info, "common", "Flushing the encoder");
        coder.flush();
        size = static_cast<std::uint32_t>(channel.get_bytes_written());
        KM_TRACE(trace_info, "common", "slot_size=%ld", static_cast<long>(size));
        if (out.get_error())
            return fail(out.get_error());
    }
    const long end = handle_.tell();
    if (end > pht::largest_file)
        return fail(write_error);
    KM_KILL_POINT("table.slot.written");
    if (!handle_.move_from_start(start) || !write_slot_header(size, pht::busy) ||
        !handle_.move_from_start(end)) {
        KM_TRACE(trace_error, "common", "Error seeking");
        return fail(seek_error);
    }
    return 1;
}

int Persistent_Hashtable::commit() {
    char mark[2];
    pht::put(mark, pht::committed);
    const long end = handle_.tell();
    KM_TRACE(trace_info, "common", "the current slot is empty");
    KM_KILL_POINT("table.slot.before_mark");
    if (!latch(handle_.move_from_start(current_offset_) && handle_.write(mark, sizeof mark) &&
               handle_.move_from_start(end)))
        return 0;
    KM_KILL_POINT("table.slot.after_mark");
    last_slot_mark_ = pht::committed;
    current_offset_ = end;
    return 1;
}

// One slot behind the log, committed. 0 leaves the end of the log where it was.
int Persistent_Hashtable::append(const codable& key, const codable& value, std::uint32_t& size) {
    if (!cut_stale_tail())
        return 0;
    if (!handle_.move_from_start(current_offset_))
        return fail(seek_error);
    KM_TRACE(trace_info, "common", "try to write key and value on file");
    return write_slot(key, value, size) && commit();
}

namespace {
// The words of an entry that belong to the file.
std::uint32_t& slot_offset(HashtableEntry* entry) { return entry->reserved[0]; }
std::uint32_t& slot_size(HashtableEntry* entry) { return entry->reserved[1]; }
} // namespace

int Persistent_Hashtable::put(codable* key, codable* value) {
    KM_TRACE_FUNCTION("Persistent_Hashtable::put");
    if (table_error_ || !Hashtable::put(key, value))
        return 0;
    HashtableEntry* entry = get_last_entry();
    const long start = current_offset_;
    std::uint32_t size = 0;
    if (!append(*key, *value, size)) {
        delete unlink_entry(*key);
        return 0;
    }
    slot_offset(entry) = static_cast<std::uint32_t>(start);
    slot_size(entry) = size;
    return 1;
}

int Persistent_Hashtable::update(codable* key, codable* value) {
    KM_TRACE_FUNCTION("Persistent_Hashtable::update");
    const std::unique_ptr<codable> own_key(key);
    std::unique_ptr<codable> own_value(value);
    if (table_error_)
        return 0;
    HashtableEntry* entry = find_entry(*key);
    if (!entry) {
        codable* new_key = key->clone();
        if (put(new_key, value)) {
            own_value.release();
            return 1;
        }
        delete new_key;
        return 0;
    }
    const long start = current_offset_;
    std::uint32_t size = 0;
    if (!append(*key, *value, size))
        return 0;
    // The new slot's size counts, since the entry already carries it when the old one is given up.
    free_size_ += size;
    slot_offset(entry) = static_cast<std::uint32_t>(start);
    slot_size(entry) = size;
    replace_value(entry, own_value.release());
    return reclaim();
}

int Persistent_Hashtable::remove(const codable* key) {
    KM_TRACE_FUNCTION("Persistent_Hashtable::remove");
    if (table_error_)
        return 0;
    HashtableEntry* entry = find_entry(*key);
    if (!entry)
        return 1;
    char mark[2];
    pht::put(mark, pht::empty);
    const long at = static_cast<long>(slot_offset(entry)) + pht::status_place;
    free_size_ += slot_size(entry);
    KM_TRACE(trace_info, "common", "set the pointer to %ld from the start", at);
    KM_KILL_POINT("table.remove.before_mark");
    if (!latch(handle_.move_from_start(at) && handle_.write(mark, sizeof mark)))
        return 0;
    KM_KILL_POINT("table.remove.after_mark");
    Hashtable::remove(key);
    return reclaim();
}

int Persistent_Hashtable::reclaim() {
    if (free_size_ <= free_threshold_)
        return 1;
    const int done = defragment(copying, current_offset_);
    free_size_ = 0;
    return done;
}

void Persistent_Hashtable::take_slot(codable* key, codable* value, long start, long size,
                                     Persistent_Hashtable* copy) {
    if (Hashtable::put(key, value)) {
        if (copy) {
            std::unique_ptr<codable> copy_key(key->clone()), copy_value(value->clone());
            if (copy->put(copy_key.get(), copy_value.get()))
                copy_key.release(), copy_value.release();
        }
    } else {
        HashtableEntry* old = get_last_entry();
        free_size_ += slot_size(old);
        replace_value(old, value);
        delete key;
    }
    slot_offset(get_last_entry()) = static_cast<std::uint32_t>(start);
    slot_size(get_last_entry()) = static_cast<std::uint32_t>(size);
}

Persistent_Hashtable::slot_result Persistent_Hashtable::read_slot(log_reader& log,
                                                                  Persistent_Hashtable* copy) {
    const long start = log.position();
    char head[pht::slot_header_size] = {};
    const int have = log.read_up_to(head, 2);
    const bool stop = state_ == copying && start == header_offset_;
    if (log.get_error())
        return fail(log.get_error()), slot_failed;
    if (have < 2 || pht::get<std::uint16_t>(head) == pht::uncommitted || stop) {
        KM_TRACE(trace_info, "common", "end of file reached");
        stale_tail_ = have > 0;
        return log_end;
    }
    log.read_up_to(head + 2, static_cast<int>(pht::slot_header_size) - 2);
    const auto status = pht::get<std::uint16_t>(head + pht::status_place);
    if (status == 0) {
        KM_TRACE(trace_warning, "common", "the corruption is with all zeros at the end");
        latch(handle_.chsize(start));
        return log_end;
    }
    decode_channel channel(&log);
    decoder coder(&channel);
    std::unique_ptr<codable> key(coder.take_owned_object<codable>());
    std::unique_ptr<codable> value;
    if (coder.get_status() == 0)
        value.reset(coder.take_owned_object<codable>());
    if (coder.get_status() || !key || !value || (status != pht::busy && status != pht::empty)) {
        KM_TRACE(trace_error, "common", "hash file is corrupted");
        return fail(corrupted), slot_failed;
    }
    log.set_position(log.position() - channel.pushed_back());
    current_offset_ = log.position();
    if (status == pht::busy) {
        KM_TRACE(trace_return, "common", "slot busy");
        take_slot(key.release(), value.release(), start, channel.get_bytes_read(), copy);
        return slot_read;
    }
    KM_TRACE(trace_return, "common", "slot empty");
    Hashtable::remove(key.get());
    if (copy)
        copy->remove(key.get());
    free_size_ += static_cast<unsigned long>(channel.get_bytes_read());
    return slot_read;
}

int Persistent_Hashtable::load_table() {
    KM_TRACE_FUNCTION("Persistent_Hashtable::load_table");
    std::unique_ptr<Persistent_Hashtable> copy;
    if (copy_target_) {
        KM_TRACE(trace_info, "common", "copy of hashtable requested");
        KM_TRACE(trace_info, "common", "copy destination path='%s'", copy_target_->mbcs_str());
        copy = std::make_unique<Persistent_Hashtable>(*copy_target_, 0, 0, nullptr);
    }
    log_reader log(handle_, current_offset_);
    slot_result result;
    while ((result = read_slot(log, copy.get())) == slot_read) {
    }
    return result == log_end && table_error_ == 0;
}

} // namespace km
