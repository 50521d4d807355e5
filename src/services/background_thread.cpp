// background_thread: a thread of the library's own beside the one that works
// no format
// invariant: signals are for the thread that works
#include "background_thread.h"

#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace km {

namespace {
// The kernel has all threads wait for milliseconds when the table of descriptors grows that they
// share. It grows at once while there is one thread only.
void make_room_for_descriptors() {
    constexpr int enough = 511;
    const int highest = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, enough);
    if (highest >= 0)
        ::close(highest);
}

bool start(pthread_t& thread, void* (*work)(void*), void* argument) {
    static std::once_flag first;
    std::call_once(first, make_room_for_descriptors);
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool started = ::pthread_create(&thread, nullptr, work, argument) == 0;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}
} // namespace

bool start_background_thread(void* (*work)(void*)) {
    pthread_t thread;
    const bool started = start(thread, work, nullptr);
    if (started)
        ::pthread_detach(thread);
    return started;
}

bool joined_thread::start(void* (*work)(void*), void* argument) {
    return runs_ = km::start(thread_, work, argument);
}

void joined_thread::join() {
    if (runs_)
        ::pthread_join(thread_, nullptr);
    runs_ = false;
}

meanwhile::meanwhile(std::function<int()> work) : work_(std::move(work)) {
    const auto run = [](void* of) -> void* {
        auto& self = *static_cast<meanwhile*>(of);
        self.result_ = self.work_();
        return nullptr;
    };
    if (!thread_.start(run, this))
        result_ = work_();
}

int meanwhile::result() {
    thread_.join();
    return result_;
}

} // namespace km
