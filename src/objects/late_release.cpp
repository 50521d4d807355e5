// late_release: what was removed is given back to its file system by a second processor
// no format
// invariant: behind finish_releases nothing is held
#include "late_release.h"

#include "background_thread.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <fcntl.h>
#include <linux/magic.h>
#include <pthread.h>
#include <sched.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace km {

namespace {

// The work of a file: one for its entry, and as much for each of these bytes in the page cache.
constexpr std::int64_t bytes_of_one = 64 << 10;
constexpr std::int64_t small_run = 64; // removals that end before a thread pays
constexpr std::int64_t batch = 32;     // handed over at a time: a wake-up costs more than a file
constexpr unsigned most_waiting = 128;
constexpr unsigned taken_at_once = 8; // so that two share what is left at the end

struct release_queue {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    std::array<int, most_waiting> waiting{};
    unsigned count = 0; // of `waiting`
    bool busy = false;  // the thread closes what it took
    bool (*some)() = nullptr;
    bool woken = false;                   // for that
    std::atomic<bool> is_to_rest = false; // the thread, between two files
    std::atomic<bool> closes = false;     // it is within one
    // Of the caller's thread alone:
    bool runs = false;
    void (*stop)() = nullptr;
    std::int64_t removed = 0;
    std::array<int, batch> gathered{};
    unsigned held = 0;
    std::int64_t held_work = 0;
};

release_queue& state() {
    static release_queue& only = *new release_queue; // outlives the thread
    return only;
}

void do_all_of(bool (*some)()) {
    while (some && some()) {
    }
}

std::int64_t work_of(std::int64_t bytes) { return 1 + bytes / bytes_of_one; }

struct taken_files {
    std::array<int, taken_at_once> files{};
    unsigned count = 0;

    // Under the lock.
    void take(release_queue& all) {
        for (count = 0; count < taken_at_once && all.count; ++count)
            files[count] = all.waiting[--all.count];
    }
};

// In the thread. Pauses are short, so nobody is put to sleep for one and woken again.
void close_outside_pauses(release_queue& all, int file) {
    for (;;) {
        all.closes = true; // in front of the look at the other, as release_pause does it
        if (!all.is_to_rest)
            break;
        all.closes = false;
        ::sched_yield();
    }
    ::close(file);
    all.closes = false;
}

void close_and_look(release_queue& all, const taken_files& taken, bool (*some)()) {
    do_all_of(some);
    for (unsigned i = 0; i < taken.count; ++i) {
        close_outside_pauses(all, taken.files[i]);
        do_all_of(some);
    }
}

void* release_for_ever(void*) {
    release_queue& all = state();
    taken_files mine;
    ::pthread_mutex_lock(&all.lock);
    for (;;) {
        while (all.count == 0 && !all.woken) {
            all.busy = false;
            ::pthread_cond_broadcast(&all.changed);
            ::pthread_cond_wait(&all.changed, &all.lock);
        }
        mine.take(all);
        all.busy = true;
        all.woken = false;
        bool (*const some)() = all.some;
        ::pthread_mutex_unlock(&all.lock);
        close_and_look(all, mine, some);
        ::pthread_mutex_lock(&all.lock);
    }
}

bool thread_runs(release_queue& all) {
    if (!all.runs)
        all.runs = start_background_thread(release_for_ever);
    return all.runs;
}

// The thread is behind: what it has no room for is closed here.
void hand_over(release_queue& all) {
    unsigned given = 0;
    ::pthread_mutex_lock(&all.lock);
    for (; given < all.held && all.count < most_waiting; ++given)
        all.waiting[all.count++] = all.gathered[given];
    ::pthread_cond_broadcast(&all.changed);
    ::pthread_mutex_unlock(&all.lock);
    for (; given < all.held; ++given)
        ::close(all.gathered[given]);
    all.held = 0;
    all.held_work = 0;
}

} // namespace

bool gives_back_slowly(int directory) {
    struct statfs about {};
    return ::fstatfs(directory, &about) == 0 &&
           (about.f_type == EXT4_SUPER_MAGIC || about.f_type == XFS_SUPER_MAGIC);
}

int hold_for_release(int directory, const char* name, std::int64_t bytes) {
    release_queue& all = state();
    if (all.removed < small_run) {
        all.removed += work_of(bytes);
        if (all.removed < small_run)
            return -1;
    }
    if (!thread_runs(all))
        return -1;
    return ::openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
}

void release_late(int held, std::int64_t bytes) {
    release_queue& all = state();
    if (held < 0)
        return;
    all.gathered[all.held++] = held;
    all.held_work += work_of(bytes);
    if (all.held_work >= batch)
        hand_over(all);
}

void finish_releases() {
    release_queue& all = state();
    all.removed = 0;
    if (all.stop)
        all.stop();
    if (!all.runs)
        return;
    hand_over(all);
    taken_files mine;
    ::pthread_mutex_lock(&all.lock);
    while (all.count || all.busy) {
        mine.take(all);
        if (mine.count == 0) {
            ::pthread_cond_wait(&all.changed, &all.lock);
            continue;
        }
        ::pthread_mutex_unlock(&all.lock);
        for (unsigned i = 0; i < mine.count; ++i)
            ::close(mine.files[i]);
        ::pthread_mutex_lock(&all.lock);
    }
    ::pthread_mutex_unlock(&all.lock);
}

release_pause::release_pause() {
    release_queue& all = state();
    all.is_to_rest = true;
    while (all.closes)
        ::sched_yield();
}

release_pause::~release_pause() { state().is_to_rest = false; }

bool work_before_releases(bool (*some)(), void (*stop)()) {
    release_queue& all = state();
    ::pthread_mutex_lock(&all.lock);
    all.some = some;
    ::pthread_mutex_unlock(&all.lock);
    all.stop = stop;
    return thread_runs(all);
}

void wake_release_thread() {
    release_queue& all = state();
    ::pthread_mutex_lock(&all.lock);
    all.woken = true;
    ::pthread_cond_broadcast(&all.changed);
    ::pthread_mutex_unlock(&all.lock);
}

} // namespace km
