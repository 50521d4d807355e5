// read_ahead: digests of files that will be asked for, made by a second processor
// no format
// invariant: a file is read by the thread or by whoever asks for it, never by both
#include "read_ahead.h"

#include "background_thread.h"
#include "digest.h"
#include "directory_kept_open.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <unordered_map>

namespace km {

bool known_file::is(const struct stat& about) const {
    return known && device == about.st_dev && inode == about.st_ino &&
           changed.tv_sec == about.st_ctim.tv_sec && changed.tv_nsec == about.st_ctim.tv_nsec;
}

void known_file::set(const struct stat& about) {
    *this = {true, about.st_dev, about.st_ino, about.st_ctim};
}

std::string digest_of_known_file(int descriptor, long size, known_file& known) {
    constexpr long moment = 2; // seconds: some clocks of file systems tick that slowly
    timespec before{};
    ::clock_gettime(CLOCK_REALTIME, &before);
    std::string sum = digest_of_open_file(descriptor, size);
    struct stat behind {};
    if (!sum.empty() && ::fstat(descriptor, &behind) == 0 && behind.st_size == size &&
        before.tv_sec - behind.st_ctim.tv_sec > moment)
        known.set(behind);
    return sum;
}

namespace {

constexpr std::size_t most_files = 16384;
constexpr long largest = 64L << 20; // whoever stops the thread waits for one file

enum progress : int { not_begun, in_work, ended };

struct file_ahead {
    std::string path;
    std::atomic<int> state{not_begun};
    known_file known;
    std::string digest;

    bool claim() {
        int expected = not_begun;
        return state.compare_exchange_strong(expected, in_work);
    }
    void end() {
        state.store(ended);
        state.notify_all();
    }
};

struct all_ahead {
    std::unique_ptr<file_ahead[]> files;
    std::size_t count = 0;
    std::unordered_map<std::string, std::size_t> index;
    bool began = false;
    std::atomic<bool> stopped{false};
    std::atomic<bool> works{false};
};

all_ahead& all() {
    static all_ahead& only = *new all_ahead; // outlives the thread
    return only;
}

// Looked at before it is opened: opening a pipe lets its writer go, and a device may act on it.
void read_one(file_ahead& one, directory_kept_open& directories) {
    const std::size_t slash = one.path.find_last_of('/');
    if (slash == std::string::npos || one.path[0] != '/')
        return; // whoever asks for it tells the fault
    directories.go_to(slash == 0 ? "/" : one.path.substr(0, slash));
    const int directory = directories.get();
    const char* name = one.path.c_str() + slash + 1;
    struct stat about {};
    if (directory < 0 || ::fstatat(directory, name, &about, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(about.st_mode) || about.st_size > largest)
        return;
    const int in = ::openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (in < 0)
        return;
    one.digest = digest_of_known_file(in, about.st_size, one.known);
    ::close(in);
}

void* read_all(void*) {
    all_ahead& work = all();
    {
        directory_kept_open directories;
        for (std::size_t i = work.count; i-- > 0 && !work.stopped.load();) {
            file_ahead& one = work.files[i];
            if (!one.claim())
                continue;
            read_one(one, directories);
            one.end();
        }
    }
    work.works.store(false);
    work.works.notify_all();
    return nullptr;
}

} // namespace

bool began_to_read_ahead() { return all().began; }

void begin_to_read_ahead(const std::vector<std::string>& paths) {
    all_ahead& work = all();
    if (work.began)
        return;
    work.began = true;
    work.count = std::min(paths.size(), most_files);
    work.files = std::make_unique<file_ahead[]>(work.count);
    for (std::size_t i = 0; i < work.count; ++i) {
        work.files[i].path = paths[i];
        work.index.emplace(paths[i], i);
    }
    work.works.store(true);
    if (!start_background_thread(read_all)) {
        work.works.store(false);
        work.index.clear();
    }
}

bool take_read_ahead(const std::string& path, known_file& known, std::string& digest) {
    all_ahead& work = all();
    const auto found = work.index.find(path);
    if (found == work.index.end())
        return false;
    file_ahead& one = work.files[found->second];
    if (one.claim()) {
        one.end(); // the caller's from now on
        return false;
    }
    one.state.wait(in_work);
    known = one.known;
    digest = one.digest;
    return known.known;
}

void stop_reading_ahead() {
    all_ahead& work = all();
    work.stopped.store(true);
    work.works.wait(true);
}

} // namespace km
