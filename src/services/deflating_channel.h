// deflating_channel: deflates on a second processor what is written to it
#pragma once

#include "background_thread.h"
#include "channel.h"
#include "deflated_entry.h"

#include <deque>
#include <string>

namespace km {

// Holds what becomes one zip entry, deflated. Where little is written, or there is no thread to be
// had, the caller's thread does the work. A writer that is too fast waits.
class deflating_channel : public output_channel {
  public:
    // 0 to 9, or -1 for the usual level.
    explicit deflating_channel(int level);
    ~deflating_channel() override;
    deflating_channel(const deflating_channel&) = delete;
    deflating_channel& operator=(const deflating_channel&) = delete;

    void write(int byte) override;
    void write(const unsigned char* buffer, int length) override;
    int get_error() override { return 0; }
    // All that was written: the bytes are those of a zipping_channel that adds a file. Once, and
    // the last call.
    deflated_data finish();

  private:
    void hand_over();
    void start_thread();
    bool next(std::string& block, bool waits);
    void deflate_all(bool waits);
    void deflate(const std::string& block);
    void end_thread();

    std::string block_; // of the writer, until it is full
    std::size_t handed_over_ = 0;
    bool runs_ = false;
    entry_deflater engine_;                            // of the thread, while it runs
    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER; // for the rest
    pthread_cond_t came_ = PTHREAD_COND_INITIALIZER;
    pthread_cond_t went_ = PTHREAD_COND_INITIALIZER;
    std::deque<std::string> blocks_;
    bool has_ended_ = false;
    joined_thread thread_;
};

} // namespace km
