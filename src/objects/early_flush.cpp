// early_flush: flushing of changed file systems while the work goes on
// no format
// invariant: what was flushed early is never taken for durable
#include "early_flush.h"

#include "background_thread.h"

#include <fcntl.h>
#include <map>
#include <pthread.h>
#include <unistd.h>

namespace km {

namespace {

// Small runs end before a thread pays.
constexpr int enough_changes = 768;
constexpr long enough_bytes = 8L << 20;
constexpr int some_changes = 64;
constexpr long some_bytes = 1L << 20;

struct flusher {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t wanted = PTHREAD_COND_INITIALIZER;
    bool runs = false;
    bool is_wanted = false;
    std::map<dev_t, int> file_systems; // descriptors stay open: they are few
    int changes = 0;                   // of the caller's thread alone, as the next two
    long bytes = 0;
    bool is_worth_it = false; // there was enough once in this run
};

flusher& state() {
    static flusher& only = *new flusher; // outlives the thread
    return only;
}

std::map<dev_t, int> wait_for_work(flusher& all) {
    ::pthread_mutex_lock(&all.lock);
    while (!all.is_wanted)
        ::pthread_cond_wait(&all.wanted, &all.lock);
    all.is_wanted = false;
    const auto copy = all.file_systems;
    ::pthread_mutex_unlock(&all.lock);
    return copy;
}

void* flush_for_ever(void*) {
    for (;;)
        for (const auto& one : wait_for_work(state()))
            ::syncfs(one.second);
}

void ask_for_flush(flusher& all) {
    all.changes = 0;
    all.bytes = 0;
    all.is_worth_it = true;
    // Without a thread all is flushed at the end.
    if (!all.runs && !(all.runs = start_background_thread(flush_for_ever)))
        return;
    ::pthread_mutex_lock(&all.lock);
    all.is_wanted = true;
    ::pthread_cond_signal(&all.wanted);
    ::pthread_mutex_unlock(&all.lock);
}

void know(flusher& all, dev_t device, int directory) {
    if (all.file_systems.count(device)) // only this thread adds
        return;
    const int own = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (own < 0)
        return;
    ::pthread_mutex_lock(&all.lock);
    all.file_systems[device] = own;
    ::pthread_mutex_unlock(&all.lock);
}

} // namespace

void note_change(dev_t device, int directory, long bytes) {
    flusher& all = state();
    know(all, device, directory);
    all.bytes += bytes;
    if (++all.changes >= enough_changes || all.bytes >= enough_bytes)
        ask_for_flush(all);
}

void flush_soon() {
    flusher& all = state();
    if (all.changes >= some_changes || all.bytes >= some_bytes)
        ask_for_flush(all);
}

void flush_early() {
    flusher& all = state();
    if (all.is_worth_it && (all.changes || all.bytes))
        ask_for_flush(all);
    all.is_worth_it = false;
}

} // namespace km
