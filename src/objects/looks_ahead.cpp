// looks_ahead: files that a removal comes to next are looked at by a second processor
// no format
// invariant: what is held and not taken is let go of when the walk passes it or ends
#include "looks_ahead.h"

#include "directory_kept_open.h"
#include "file_object.h"
#include "late_release.h"
#include "open_file.h"
#include "package.h"
#include "tree_files.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <utility>
#include <vector>

namespace km {

namespace {

constexpr std::size_t few_files = 64; // of a package for which no thread pays
constexpr std::size_t most_ahead = 64;
constexpr std::size_t at_a_time = 8;
constexpr unsigned most_lost = 64; // jumps of a walk, behind which its order is taken for unknown

struct planned_look {
    std::string name;
    std::size_t parent = 0;                  // its place in `parents`
    std::pair<std::size_t, std::size_t> run; // of files, first and behind the last, that it is in
};

struct seen_file {
    ahead_look look;
    bool good = false;
    long when = 0; // of now()
};

// Milliseconds; its steps are of some.
long now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

// What was seen of the files from turn `from` on.
struct seen_files {
    std::size_t from = 0;
    std::vector<seen_file> files;

    std::size_t end() const { return from + files.size(); }
    bool has(std::size_t turn) const { return turn >= from && turn < end(); }
    void drop() {
        for (seen_file& one : files)
            const open_file closed(one.look.held);
        files.clear();
        from = 0;
    }
};

struct looks {
    // Of the walk alone:
    const cm_package* package = nullptr;
    std::vector<const km_file*> order; // of the tree
    std::size_t last = 0;              // turn that the walk came to
    unsigned lost = 0;
    seen_files taken;

    // These stay as they are while the thread looks.
    bool works = false;              // the walk goes from the end of the tree, and files are held
    std::vector<planned_look> files; // in the order of the tree
    std::vector<std::string> parents;

    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // for the rest
    pthread_cond_t rests = PTHREAD_COND_INITIALIZER;
    seen_files found;        // and not taken
    std::size_t claimed = 0; // the thread looks at what lies between found.end() and this
    std::size_t wanted = 0;  // it is to look as far as this

    // Of the thread, and of the walk while that rests:
    directory_kept_open directory;
    bool holds_there = false;

    bool is_busy() const { return claimed > found.end(); }
    std::size_t number(std::size_t turn) const { return works ? files.size() - 1 - turn : turn; }
    // The first turn behind the run of files that this one is in.
    std::size_t end_of_run(std::size_t turn) const {
        const auto& run = files[number(turn)].run;
        return works ? files.size() - run.first : run.second;
    }
};

looks& state() {
    static looks& only = *new looks; // outlives the thread
    return only;
}

bool open_parent_of(looks& all, const planned_look& file) {
    if (all.directory.go_to(all.parents[file.parent]))
        all.holds_there =
            all.works && all.directory.good() && gives_back_slowly(all.directory.get());
    return all.directory.good();
}

// What cannot be looked at here is looked at in its turn, and told from there.
seen_file look_at_file(looks& all, const planned_look& file) {
    seen_file seen;
    ahead_look& look = seen.look;
    if (!open_parent_of(all, file))
        return seen;
    const int directory = all.directory.get();
    if (all.holds_there) {
        look.held = ::openat(directory, file.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
        seen.good = look.held >= 0 && ::fstat(look.held, &look.about) == 0;
    } else {
        seen.good = ::fstatat(directory, file.name.c_str(), &look.about, AT_SYMLINK_NOFOLLOW) == 0;
    }
    return seen;
}

// In the thread. False: no more looks are wanted.
bool look_at_some() {
    looks& all = state();
    ::pthread_mutex_lock(&all.lock);
    const std::size_t from = all.found.end();
    const std::size_t to = all.claimed = std::max(from, std::min(all.wanted, from + at_a_time));
    ::pthread_mutex_unlock(&all.lock);
    if (from == to)
        return false;
    std::vector<seen_file> seen;
    const long when = now();
    for (std::size_t i = from; i < to; ++i) {
        seen.push_back(look_at_file(all, all.files[all.number(i)]));
        seen.back().when = when;
    }
    ::pthread_mutex_lock(&all.lock);
    for (const seen_file& one : seen)
        all.found.files.push_back(one);
    ::pthread_cond_broadcast(&all.rests);
    ::pthread_mutex_unlock(&all.lock);
    return true;
}

void stop_looking() {
    looks& all = state();
    ::pthread_mutex_lock(&all.lock);
    all.wanted = 0;
    while (all.is_busy())
        ::pthread_cond_wait(&all.rests, &all.lock);
    all.found.drop();
    all.claimed = 0;
    all.directory.close();
    ::pthread_mutex_unlock(&all.lock);
    all.taken.drop();
    all.last = 0;
}

void forget_plan() {
    stop_looking();
    state().package = nullptr;
}

void plan(looks& all, const cm_package& package) {
    all.package = &package;
    all.order.clear();
    all.files.clear();
    all.parents.clear();
    std::size_t begin = 0;
    const auto end_run = [&] {
        for (std::size_t i = begin; i < all.files.size(); ++i)
            all.files[i].run = {begin, all.files.size()};
        begin = all.files.size();
    };
    each_file(
        package,
        [&](const km_file& file) {
            const std::string& path = file.path_bytes();
            const std::size_t slash = path.find_last_of('/');
            if (slash == std::string::npos || slash == 0)
                return; // looked at in its turn
            if (all.parents.empty() || path.compare(0, slash, all.parents.back()) != 0)
                all.parents.push_back(path.substr(0, slash));
            all.order.push_back(&file);
            all.files.push_back({path.substr(slash + 1), all.parents.size() - 1, {}});
        },
        end_run);
    end_run();
    if (all.order.size() < few_files || !work_before_releases(look_at_some, forget_plan))
        all.order.clear();
}

void begin_walk(looks& all, const cm_package& package, bool works) {
    stop_looking();
    if (all.package != &package)
        plan(all, package);
    all.works = works;
    all.lost = 0;
}

// Where the walk meets `file`; as many as there are if that is not known.
std::size_t turn_of(looks& all, const km_file& file) {
    const std::size_t count = all.order.size();
    for (std::size_t turn = all.last; turn < std::min(all.last + most_ahead, count); ++turn)
        if (all.order[all.number(turn)] == &file)
            return all.last = turn;
    if (all.lost >= most_lost)
        return count;
    ++all.lost;
    const auto at = std::find(all.order.begin(), all.order.end(), &file);
    if (at == all.order.end())
        return count;
    // Its number is its turn, or its turn its number.
    return all.last = all.number(static_cast<std::size_t>(at - all.order.begin()));
}

bool is_of(const looks& all, const planned_look& planned, const std::string& path) {
    const std::string& parent = all.parents[planned.parent];
    return path.size() == parent.size() + 1 + planned.name.size() && path.ends_with(planned.name) &&
           path.starts_with(parent);
}

// Takes what there is, and has the thread go on behind `turn`.
void take_more(looks& all, std::size_t turn) {
    all.taken.drop();
    ::pthread_mutex_lock(&all.lock);
    std::swap(all.taken, all.found);
    all.found.from = all.taken.end();
    if (!all.is_busy() && turn >= all.claimed) // the walk is ahead of the thread
        all.found.from = all.claimed = turn + 1;
    all.wanted = std::min(all.found.from + most_ahead, all.end_of_run(turn));
    const bool wakes = all.wanted > all.claimed;
    ::pthread_mutex_unlock(&all.lock);
    if (wakes)
        wake_release_thread();
}

} // namespace

bool take_look_ahead(const cm_package& package, const km_file& file, bool works, ahead_look& found,
                     long serves_for) {
    looks& all = state();
    if (all.package != &package || all.works != works)
        begin_walk(all, package, works);
    const std::size_t turn = turn_of(all, file);
    if (turn == all.order.size() || !is_of(all, all.files[all.number(turn)], file.path_bytes()))
        return false;
    if (!all.taken.has(turn))
        take_more(all, turn);
    if (!all.taken.has(turn))
        return false;
    seen_file& seen = all.taken.files[turn - all.taken.from];
    if (!seen.good || now() - seen.when > serves_for)
        return false;
    found = seen.look;
    found.held = std::exchange(seen.look.held, -1);
    seen.good = false;
    return true;
}

} // namespace km
