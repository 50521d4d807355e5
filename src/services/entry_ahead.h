// entry_ahead: one entry of a container, inflated on a second processor while it is read
#pragma once

#include "background_thread.h"
#include "channel.h"

#include <memory>

namespace km {

class unzipping_channel;

// The bytes of the entry that the reader of a container stands in. A thread of its own inflates
// some blocks of them ahead, until stop() or the end of this; nobody else uses the reader so long.
// Without a thread it reads as it is asked. Only for containers whose bytes are at hand: no read of
// theirs may wait, or end the process.
class entry_ahead : public input_channel {
  public:
    // `entry` is lent.
    explicit entry_ahead(unzipping_channel& entry);
    ~entry_ahead() override;
    entry_ahead(const entry_ahead&) = delete;
    entry_ahead& operator=(const entry_ahead&) = delete;

    using input_channel::read;
    int read() override;
    int read(unsigned char* buffer, int length) override;
    // That of the container's reader. Stops.
    int get_error() override;
    // The thread is ended. What it was ahead is lost: nothing is read behind this.
    void stop();
    // Stops, and passes to the end of the entry, as unzipping_channel::close_entry().
    int close_entry();

  private:
    struct blocks;
    bool next_block();

    unzipping_channel& entry_;
    std::unique_ptr<blocks> blocks_; // null: there is no thread
    joined_thread thread_;
    const unsigned char* at_ = nullptr; // in the block that is read
    int left_ = 0;
    bool ended_ = false;
};

} // namespace km
