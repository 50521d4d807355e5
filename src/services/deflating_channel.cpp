// deflating_channel: deflates on a second processor what is written to it
// format: deflate streams without a header
// invariants: a few blocks wait at most; the thread ends before the channel does
#include "deflating_channel.h"

#include <algorithm>

namespace km {

namespace {
constexpr std::size_t block_size = 65536;
constexpr std::size_t most_blocks = 32;
constexpr std::size_t enough_blocks = 3; // less is deflated before a thread pays
} // namespace

deflating_channel::deflating_channel(int level) : engine_(level) { block_.reserve(block_size); }

deflating_channel::~deflating_channel() { end_thread(); }

void deflating_channel::write(int byte) {
    const auto one = static_cast<unsigned char>(byte);
    write(&one, 1);
}

void deflating_channel::write(const unsigned char* buffer, int length) {
    while (length > 0) {
        const auto part = std::min(block_size - block_.size(), static_cast<std::size_t>(length));
        block_.append(reinterpret_cast<const char*>(buffer), part);
        buffer += part;
        length -= static_cast<int>(part);
        if (block_.size() == block_size)
            hand_over();
    }
}

void deflating_channel::hand_over() {
    ::pthread_mutex_lock(&lock_);
    while (runs_ && blocks_.size() >= most_blocks)
        ::pthread_cond_wait(&went_, &lock_);
    blocks_.push_back(std::move(block_));
    ::pthread_cond_signal(&came_);
    ::pthread_mutex_unlock(&lock_);
    block_.clear();
    block_.reserve(block_size);
    if (++handed_over_ == enough_blocks)
        start_thread();
    else if (handed_over_ > enough_blocks && !runs_)
        deflate_all(false);
}

void deflating_channel::start_thread() {
    const auto run = [](void* of) -> void* {
        static_cast<deflating_channel*>(of)->deflate_all(true);
        return nullptr;
    };
    runs_ = thread_.start(run, this);
}

// False: nothing waits and, if that is waited for, nothing comes.
bool deflating_channel::next(std::string& block, bool waits) {
    ::pthread_mutex_lock(&lock_);
    while (blocks_.empty() && waits && !has_ended_)
        ::pthread_cond_wait(&came_, &lock_);
    const bool found = !blocks_.empty();
    if (found) {
        block = std::move(blocks_.front());
        blocks_.pop_front();
        ::pthread_cond_signal(&went_);
    }
    ::pthread_mutex_unlock(&lock_);
    return found;
}

void deflating_channel::deflate_all(bool waits) {
    for (std::string block; next(block, waits);)
        deflate(block);
}

void deflating_channel::deflate(const std::string& block) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(block.data());
    for (std::size_t at = 0; at < block.size(); at += entry_portion)
        engine_.write(bytes + at,
                      static_cast<int>(std::min<std::size_t>(entry_portion, block.size() - at)));
}

void deflating_channel::end_thread() {
    ::pthread_mutex_lock(&lock_);
    has_ended_ = true;
    ::pthread_cond_signal(&came_);
    ::pthread_mutex_unlock(&lock_);
    thread_.join();
    runs_ = false;
}

deflated_data deflating_channel::finish() {
    end_thread();
    deflate_all(false); // what a thread would have done
    deflate(block_);
    block_.clear();
    return engine_.finish();
}

} // namespace km
