// looks_ahead: files that a removal comes to next are looked at by a second processor
// no format
// invariant: what is held and not taken is let go of when the walk passes it or ends
#include "looks_ahead.h"

#include "file_object.h"
#include "late_release.h"
#include "open_file.h"
#include "package.h"
#include "target_root.h"
#include "tree_files.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace km {

namespace {

constexpr std::size_t few_files = 64; // of a package for which no thread pays
constexpr std::size_t most_ahead = 64;
constexpr std::size_t at_a_time = 8;
constexpr long old = 50; // milliseconds, after which a look is made again

struct planned_look {
    std::string name;
    std::size_t parent = 0; // its place in `parents`
    std::size_t end = 0;    // of the run of files that it belongs to
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

// What was seen of the files from number `from` on.
struct seen_files {
    std::size_t from = 0;
    std::vector<seen_file> files;

    std::size_t end() const { return from + files.size(); }
    void drop(std::size_t new_from) {
        for (seen_file& one : files)
            const open_file closed(one.look.held);
        files.clear();
        from = new_from;
    }
};

struct looks {
    // Of the walk alone:
    const cm_package* package = nullptr;
    bool works = false;
    std::unordered_map<const km_file*, std::size_t> order; // in which a removal meets them
    seen_files taken;

    // These stay as they are while the thread looks.
    std::vector<planned_look> files;
    std::vector<std::string> parents;
    bool holds = false;

    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // for the rest
    pthread_cond_t rests = PTHREAD_COND_INITIALIZER;
    seen_files found;        // and not taken
    std::size_t claimed = 0; // the thread looks at what lies between found.end() and this
    std::size_t wanted = 0;  // it is to look as far as this

    // Of the thread, and of the walk while that rests:
    std::optional<open_file> directory;
    std::size_t open_parent = 0;
    bool holds_there = false;

    bool is_busy() const { return claimed > found.end(); }
};

looks& state() {
    static looks& only = *new looks; // outlives the thread
    return only;
}

bool open_parent_of(looks& all, const planned_look& file) {
    if (!all.directory || all.open_parent != file.parent) {
        all.directory.emplace(open_directory_below_root(all.parents[file.parent]));
        all.open_parent = file.parent;
        all.holds_there =
            all.holds && all.directory->good() && gives_back_slowly(all.directory->get());
    }
    return all.directory->good();
}

// What cannot be looked at here is looked at in its turn, and told from there.
seen_file look_at_file(looks& all, const planned_look& file) {
    seen_file seen;
    ahead_look& look = seen.look;
    if (!open_parent_of(all, file))
        return seen;
    const int directory = all.directory->get();
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
        seen.push_back(look_at_file(all, all.files[i]));
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
    all.found.drop(0);
    all.claimed = 0;
    all.directory.reset();
    ::pthread_mutex_unlock(&all.lock);
    all.taken.drop(0);
    all.package = nullptr;
}

void add_planned(looks& all, const km_file& file) {
    const std::string& path = file.path_bytes();
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos || slash == 0)
        return; // looked at in its turn
    if (all.parents.empty() || path.compare(0, slash, all.parents.back()) != 0)
        all.parents.push_back(path.substr(0, slash));
    all.order.emplace(&file, all.files.size());
    all.files.push_back({path.substr(slash + 1), all.parents.size() - 1});
}

// A removal walks the tree from its end.
void plan(looks& all, const cm_package& package, bool works) {
    stop_looking();
    all.package = &package;
    all.works = works;
    all.order.clear();
    all.files.clear();
    all.parents.clear();
    std::vector<const km_file*> files;
    std::vector<std::size_t> others; // how many files stand in front of each
    each_file(
        package, [&](const km_file& file) { files.push_back(&file); },
        [&] { others.push_back(files.size()); });
    if (files.size() < few_files)
        return;
    std::size_t run = 0;
    const auto end_run = [&] {
        for (; run < all.files.size(); ++run)
            all.files[run].end = all.files.size();
    };
    for (std::size_t i = files.size(); i-- > 0;) {
        for (; !others.empty() && others.back() > i; others.pop_back())
            end_run();
        add_planned(all, *files[i]);
    }
    end_run();
    all.holds = works;
    if (!work_before_releases(look_at_some, stop_looking))
        all.order.clear();
}

bool is_of(const looks& all, const planned_look& planned, const std::string& path) {
    const std::string& parent = all.parents[planned.parent];
    return path.size() == parent.size() + 1 + planned.name.size() &&
           path.compare(0, parent.size(), parent) == 0 &&
           path.compare(parent.size() + 1, std::string::npos, planned.name) == 0;
}

// Takes what there is, and has the thread go on from the file behind `index`.
void take_more(looks& all, std::size_t index) {
    all.taken.drop(0);
    ::pthread_mutex_lock(&all.lock);
    std::swap(all.taken, all.found);
    all.found.from = all.taken.end();
    if (!all.is_busy() && index >= all.claimed) // the walk is ahead of the thread
        all.found.from = all.claimed = index + 1;
    all.wanted = std::min(index + 1 + most_ahead, all.files[index].end);
    const bool wakes = all.wanted >= all.found.from + at_a_time ||
                       (all.wanted > all.found.from && all.wanted == all.files[index].end);
    ::pthread_mutex_unlock(&all.lock);
    if (wakes)
        wake_release_thread();
}

} // namespace

bool take_look_ahead(const cm_package& package, const km_file& file, bool works,
                     ahead_look& found) {
    looks& all = state();
    if (all.package != &package || all.works != works)
        plan(all, package, works);
    const auto planned = all.order.find(&file);
    if (planned == all.order.end() || !is_of(all, all.files[planned->second], file.path_bytes()))
        return false;
    const std::size_t index = planned->second;
    if (index < all.taken.from || index >= all.taken.end())
        take_more(all, index);
    if (index < all.taken.from || index >= all.taken.end())
        return false;
    seen_file& seen = all.taken.files[index - all.taken.from];
    if (!seen.good || now() - seen.when > old)
        return false;
    found = seen.look;
    found.held = std::exchange(seen.look.held, -1);
    seen.good = false;
    return true;
}

} // namespace km
