// pack_ahead: data of files, deflated by a second processor before they are asked for
// no format
// invariants: what is given has the size and the digest that the tree tells; the thread ends before
// its owner does
#include "pack_ahead.h"

#include "background_thread.h"
#include "digest.h"
#include "file_object.h"
#include "open_file.h"
#include "package.h"
#include "tree_files.h"
#include "zipping_channel.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace km {

namespace {

constexpr int block_size = 65536;
constexpr long largest = 8L << 20;
constexpr long most_waiting = 16L << 20; // bytes before they were deflated
constexpr std::size_t most_files = 256;
constexpr long little = 256L << 10; // that much alone is packed before a thread pays

bool is_still(int in, const told_data& told) {
    struct stat about {};
    return ::fstat(in, &about) == 0 && told.read.is(about) && about.st_size == told.size;
}

} // namespace

passing pass_data(int in, const told_data& told,
                  const std::function<void(const unsigned char*, int)>& to) {
    const bool known = is_still(in, told);
    std::optional<sha256> sum;
    if (!known)
        sum.emplace();
    unsigned char block[block_size]; // two threads may be here
    long passed = 0;
    while (passed <= told.size) {
        const ssize_t got = ::read(in, block, block_size);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return passing::unreadable;
        passed += got;
        if (got == 0 || passed > told.size)
            break;
        if (sum)
            sum->add(block, static_cast<std::size_t>(got));
        to(block, static_cast<int>(got));
    }
    const bool is_same = known ? is_still(in, told) : sum->finish() == told.digest;
    return passed == told.size && is_same ? passing::whole : passing::changed;
}

namespace {

struct file_to_pack {
    std::string source;
    told_data told;
    bool ended = false;
    std::unique_ptr<deflated_data> data;
    long weight() const { return told.size > largest ? 0 : told.size; }
};

// Null: whoever asks for it looks himself. A pipe is not even opened: that would let its writer go.
std::unique_ptr<deflated_data> pack(const file_to_pack& one, entry_deflater& with) {
    struct stat about {};
    if (one.source.empty() || one.told.size > largest || ::lstat(one.source.c_str(), &about) != 0 ||
        !S_ISREG(about.st_mode))
        return nullptr;
    const open_file in(::open(one.source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!in.good())
        return nullptr;
    const auto passed =
        pass_data(in.get(), one.told,
                  [&with](const unsigned char* bytes, int count) { with.write(bytes, count); });
    auto data = std::make_unique<deflated_data>(with.finish());
    return passed == passing::whole ? std::move(data) : nullptr;
}

} // namespace

// Files are taken on, begun, and given, always in the order of the package.
struct pack_ahead::shared {
    cm_package& package;
    bool began = false;
    std::vector<const km_file*> files;
    std::vector<std::pair<const km_file*, std::size_t>> places; // in `files`; sorted
    entry_deflater own;                                         // of the caller's thread
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t came = PTHREAD_COND_INITIALIZER;
    pthread_cond_t went = PTHREAD_COND_INITIALIZER;
    std::deque<std::unique_ptr<file_to_pack>> window; // those from `given` on
    std::size_t given = 0;
    std::size_t begun = 0;
    long waiting = 0; // bytes of those that were begun and not given
    bool owner_waits = false;
    bool thread_waits = false;
    bool ends = false; // the owner goes
    joined_thread thread;

    explicit shared(cm_package& of) : package(of) {}
    void begin();
    std::unique_ptr<deflated_data> take(const km_file& file);
    void work();

  private:
    void look_further();
    file_to_pack* next_to_begin(bool even_if_much);
    void pack_one(file_to_pack& one, entry_deflater& with);
    void wake_thread();
    std::unique_ptr<file_to_pack> wait_for_first();
};

void pack_ahead::shared::begin() {
    began = true;
    each_file(package, [this](const km_file& file) { files.push_back(&file); });
    long bytes = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        places.emplace_back(files[i], i);
        bytes += files[i]->size;
    }
    std::sort(places.begin(), places.end());
    look_further();
    const auto run = [](void* of) -> void* {
        static_cast<shared*>(of)->work();
        return nullptr;
    };
    if (files.size() < 2 || bytes < little || !thread.start(run, this))
        places.clear();
}

// The tree belongs to the caller's thread: the other one sees copies.
void pack_ahead::shared::look_further() {
    while (window.size() < most_files && given + window.size() < files.size())
        window.push_back(std::make_unique<file_to_pack>(
            file_to_pack{files[given + window.size()]->get_source(),
                         files[given + window.size()]->told(), false, nullptr}));
}

// Null: all are begun, or too much waits.
file_to_pack* pack_ahead::shared::next_to_begin(bool even_if_much) {
    if (begun >= given + window.size())
        return nullptr;
    file_to_pack& one = *window[begun - given];
    const long size = one.weight();
    if (!even_if_much && waiting && waiting + size > most_waiting)
        return nullptr;
    ++begun;
    waiting += size;
    return &one;
}

// Holds the lock before and behind, not while it works.
void pack_ahead::shared::pack_one(file_to_pack& one, entry_deflater& with) {
    ::pthread_mutex_unlock(&lock);
    auto data = pack(one, with);
    ::pthread_mutex_lock(&lock);
    one.data = std::move(data);
    one.ended = true;
    if (owner_waits)
        ::pthread_cond_signal(&came);
}

void pack_ahead::shared::work() {
    entry_deflater with;
    ::pthread_mutex_lock(&lock);
    while (!ends) {
        if (file_to_pack* one = next_to_begin(false)) {
            pack_one(*one, with);
            continue;
        }
        thread_waits = true;
        ::pthread_cond_wait(&went, &lock);
        thread_waits = false;
    }
    ::pthread_mutex_unlock(&lock);
}

// Not for each file: a wake-up costs as much as a small one.
void pack_ahead::shared::wake_thread() {
    if (thread_waits && begun < given + window.size() &&
        (waiting <= most_waiting / 2 || begun == given))
        ::pthread_cond_signal(&went);
}

std::unique_ptr<file_to_pack> pack_ahead::shared::wait_for_first() {
    while (!window.front()->ended) {
        if (file_to_pack* one = next_to_begin(begun == given)) {
            pack_one(*one, own);
            continue;
        }
        owner_waits = true;
        ::pthread_cond_wait(&came, &lock);
        owner_waits = false;
    }
    auto first = std::move(window.front());
    window.pop_front();
    ++given;
    waiting -= first->weight();
    return first;
}

// Those before the one that is asked for are not wanted any more.
std::unique_ptr<deflated_data> pack_ahead::shared::take(const km_file& file) {
    const auto at =
        std::lower_bound(places.begin(), places.end(), std::make_pair(&file, std::size_t{0}));
    if (at == places.end() || at->first != &file)
        return nullptr;
    std::unique_ptr<file_to_pack> one;
    ::pthread_mutex_lock(&lock);
    while (given <= at->second) {
        one = wait_for_first();
        if (window.size() <= most_files / 2)
            look_further();
        wake_thread();
    }
    ::pthread_mutex_unlock(&lock);
    return one ? std::move(one->data) : nullptr;
}

namespace {
pack_ahead::shared* current = nullptr;
}

pack_ahead::pack_ahead(cm_package& package) : shared_(std::make_unique<shared>(package)) {
    current = shared_.get();
}

pack_ahead::~pack_ahead() {
    current = nullptr;
    ::pthread_mutex_lock(&shared_->lock);
    shared_->ends = true;
    ::pthread_cond_signal(&shared_->went);
    ::pthread_mutex_unlock(&shared_->lock);
    shared_->thread.join();
}

std::unique_ptr<deflated_data> take_packed_ahead(const km_file& file, const zipping_channel& out) {
    if (!current || !out.deflates_usually())
        return nullptr;
    if (!current->began)
        current->begin();
    return current->take(file);
}

} // namespace km
