// background_thread: a thread of the library's own beside the one that works
#pragma once

#include <functional>
#include <pthread.h>

namespace km {

// Starts `work` for the rest of the process. Signals stay with the caller's thread. False: there is
// no thread to be had, and the caller does the work itself.
bool start_background_thread(void* (*work)(void*));

// The same for a thread that ends, and before this does.
class joined_thread {
  public:
    joined_thread() = default;
    ~joined_thread() { join(); }
    joined_thread(const joined_thread&) = delete;
    joined_thread& operator=(const joined_thread&) = delete;
    bool start(void* (*work)(void*), void* argument);
    void join();

  private:
    bool runs_ = false;
    pthread_t thread_{};
};

// One piece of work done meanwhile, as waiting for the disk. It touches nothing of the caller's.
class meanwhile {
  public:
    // Begins at once. Without a thread it is done when this returns.
    explicit meanwhile(std::function<int()> work);
    ~meanwhile() { thread_.join(); }
    meanwhile(const meanwhile&) = delete;
    meanwhile& operator=(const meanwhile&) = delete;
    // Waits for its end. What the work returned.
    int result();

  private:
    std::function<int()> work_;
    int result_ = 0;
    joined_thread thread_;
};

} // namespace km
