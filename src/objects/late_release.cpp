// late_release: what was removed is given back to its file system by a second processor
// no format
// invariant: behind finish_releases nothing is held
#include "late_release.h"

#include "background_thread.h"

#include <array>
#include <fcntl.h>
#include <linux/magic.h>
#include <pthread.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace km {

namespace {

constexpr int small_run = 64;  // removals that end before a thread pays
constexpr unsigned batch = 32; // handed over at a time: a wake-up costs more than a file
constexpr unsigned most_waiting = 4 * batch;

struct release_queue {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    std::array<int, most_waiting> waiting{};
    unsigned count = 0; // of `waiting`
    bool busy = false;  // the thread closes what it took
    bool (*some)() = nullptr;
    bool woken = false; // for that
    // Of the caller's thread alone:
    bool runs = false;
    void (*stop)() = nullptr;
    int removed = 0;
    std::array<int, batch> gathered{};
    unsigned held = 0;
};

release_queue& state() {
    static release_queue& only = *new release_queue; // outlives the thread
    return only;
}

void do_all_of(bool (*some)()) {
    while (some && some()) {
    }
}

void* release_for_ever(void*) {
    release_queue& all = state();
    std::array<int, most_waiting> mine{};
    ::pthread_mutex_lock(&all.lock);
    for (;;) {
        while (all.count == 0 && !all.woken) {
            all.busy = false;
            ::pthread_cond_broadcast(&all.changed);
            ::pthread_cond_wait(&all.changed, &all.lock);
        }
        const unsigned count = all.count;
        mine = all.waiting;
        all.count = 0;
        all.busy = true;
        all.woken = false;
        bool (*const some)() = all.some;
        ::pthread_mutex_unlock(&all.lock);
        do_all_of(some);
        for (unsigned i = 0; i < count; ++i) {
            ::close(mine[i]);
            do_all_of(some);
        }
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
}

} // namespace

bool gives_back_slowly(int directory) {
    struct statfs about {};
    return ::fstatfs(directory, &about) == 0 &&
           (about.f_type == EXT4_SUPER_MAGIC || about.f_type == XFS_SUPER_MAGIC);
}

int hold_for_release(int directory, const char* name) {
    release_queue& all = state();
    if (all.removed < small_run) {
        ++all.removed;
        return -1;
    }
    if (!thread_runs(all))
        return -1;
    return ::openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
}

void release_late(int held) {
    release_queue& all = state();
    if (held < 0)
        return;
    all.gathered[all.held++] = held;
    if (all.held == batch)
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
    ::pthread_mutex_lock(&all.lock);
    while (all.count || all.busy)
        ::pthread_cond_wait(&all.changed, &all.lock);
    ::pthread_mutex_unlock(&all.lock);
}

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
