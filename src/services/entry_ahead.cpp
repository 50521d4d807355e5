// entry_ahead: one entry of a container, inflated on a second processor while it is read
// format: docs/formats/zip.md
// invariants: the bytes come as the container's reader gives them, in their order; the thread has
// ended before anybody else touches that reader
#include "entry_ahead.h"

#include "trclog.h"
#include "unzipping_channel.h"

#include <algorithm>
#include <cstring>

namespace km {

namespace {
constexpr int block_size = 65536;
constexpr unsigned block_count = 8;
// A thread that waits for room is woken when there is much: a wake-up takes as long as a block.
constexpr unsigned few_left = 2;
} // namespace

// The thread fills them in turn, and the reader empties them.
struct entry_ahead::blocks {
    struct block {
        int length = 0; // below 1: the entry ends, or fails
        unsigned char bytes[block_size];
    };

    explicit blocks(unzipping_channel& from) : entry(from) {}
    bool fill_next();
    void run() {
        while (fill_next()) {
        }
    }

    unzipping_channel& entry;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t came = PTHREAD_COND_INITIALIZER;
    pthread_cond_t went = PTHREAD_COND_INITIALIZER;
    unsigned filled = 0;  // as many as were, so far
    unsigned emptied = 0; // the same; the reader is in the one behind
    bool ends = false;
    block all[block_count];
};

bool entry_ahead::blocks::fill_next() {
    ::pthread_mutex_lock(&lock);
    while (filled - emptied == block_count && !ends)
        ::pthread_cond_wait(&went, &lock);
    const bool goes_on = !ends;
    ::pthread_mutex_unlock(&lock);
    if (!goes_on)
        return false;
    block& next = all[filled % block_count]; // only this thread adds
    next.length = entry.read(next.bytes, block_size);
    ::pthread_mutex_lock(&lock);
    ++filled;
    ::pthread_mutex_unlock(&lock);
    ::pthread_cond_signal(&came);
    return next.length > 0;
}

entry_ahead::entry_ahead(unzipping_channel& entry) : entry_(entry) {
    // What goes wrong with an entry is traced, and one thread traces.
    if (trace::level() >= trace_error)
        return;
    blocks_ = std::make_unique<blocks>(entry);
    const auto work = [](void* of) -> void* {
        static_cast<blocks*>(of)->run();
        return nullptr;
    };
    if (!thread_.start(work, blocks_.get()))
        blocks_.reset();
}

entry_ahead::~entry_ahead() { stop(); }

void entry_ahead::stop() {
    ended_ = true;
    left_ = 0;
    if (!blocks_)
        return;
    ::pthread_mutex_lock(&blocks_->lock);
    blocks_->ends = true;
    ::pthread_cond_signal(&blocks_->went);
    ::pthread_mutex_unlock(&blocks_->lock);
    thread_.join();
    blocks_.reset();
}

int entry_ahead::get_error() {
    stop();
    return entry_.get_error();
}

int entry_ahead::close_entry() {
    stop();
    return entry_.close_entry();
}

// Gives back the block that was read, and waits for the next.
bool entry_ahead::next_block() {
    ::pthread_mutex_lock(&blocks_->lock);
    if (at_)
        ++blocks_->emptied;
    const bool has_room = blocks_->filled - blocks_->emptied == few_left;
    while (blocks_->filled == blocks_->emptied)
        ::pthread_cond_wait(&blocks_->came, &blocks_->lock);
    const blocks::block& next = blocks_->all[blocks_->emptied % block_count];
    ::pthread_mutex_unlock(&blocks_->lock);
    if (has_room)
        ::pthread_cond_signal(&blocks_->went);
    at_ = next.bytes;
    left_ = std::max(next.length, 0);
    ended_ = left_ == 0;
    return !ended_;
}

int entry_ahead::read(unsigned char* buffer, int length) {
    if (ended_)
        return -1;
    if (length < 1)
        return 0;
    if (!blocks_)
        return entry_.read(buffer, length);
    if (left_ == 0 && !next_block())
        return -1;
    const int some = std::min(length, left_);
    std::memcpy(buffer, at_, static_cast<size_t>(some));
    at_ += some;
    left_ -= some;
    return some;
}

int entry_ahead::read() {
    unsigned char byte = 0;
    return read(&byte, 1) == 1 ? byte : -1;
}

} // namespace km
