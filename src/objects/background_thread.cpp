// background_thread: a thread of the library's own beside the one that works
// no format
// invariant: signals are for the thread that works
#include "background_thread.h"

#include <csignal>
#include <pthread.h>

namespace km {

bool start_background_thread(void* (*work)(void*)) {
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const bool started = ::pthread_create(&thread, nullptr, work, nullptr) == 0;
    if (started)
        ::pthread_detach(thread);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

} // namespace km
