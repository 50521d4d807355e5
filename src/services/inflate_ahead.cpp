// inflate_ahead: entries of a local container, inflated on a second processor
// format: docs/formats/zip.md
// invariants: what is given was compared with its checksum and its sizes; the thread ends before
// its owner does
#include "inflate_ahead.h"

#include "detail_zip_bytes.h"
#include "zip_entry.h"

#include <algorithm>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace km {

namespace {

constexpr long largest_entry = 1L << 20;
constexpr long most_waiting = 3L << 20;
constexpr long few_waiting = 2L << 20;

struct wanted {
    long offset, csize, size;
    unsigned long crc;
};

struct inflated {
    long offset, packed;
    std::unique_ptr<inflate_ahead::entry_data> data;
};

bool read_at(int file, std::string& to, long length, long at) {
    to.resize(static_cast<size_t>(length));
    for (long done = 0; done < length;) {
        const ssize_t got =
            ::pread(file, to.data() + done, static_cast<size_t>(length - done), at + done);
        if (got <= 0)
            return false;
        done += got;
    }
    return true;
}

unsigned char* bytes_of(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

class worker {
  public:
    explicit worker(const char* path) : file_(::open(path, O_RDONLY | O_CLOEXEC)) {
        good_ = file_ >= 0 && ::inflateInit2(&stream_, -MAX_WBITS) == Z_OK;
    }
    ~worker() {
        if (good_)
            ::inflateEnd(&stream_);
        if (file_ >= 0)
            ::close(file_);
    }
    worker(const worker&) = delete;
    worker& operator=(const worker&) = delete;
    bool good() const { return good_; }
    // Null: the reader has to look itself.
    std::unique_ptr<inflate_ahead::entry_data> inflate(const wanted& one);

  private:
    bool read_packed(const wanted& one);

    int file_;
    bool good_ = false;
    z_stream stream_{};
    std::string packed_; // the data and the descriptor behind them
};

// The local header may say less than the directory, but nothing else.
bool worker::read_packed(const wanted& one) {
    std::string head;
    if (!read_at(file_, head, zip::local_size, one.offset))
        return false;
    const unsigned char* at = bytes_of(head);
    constexpr int method_at = 8, name_at = 26, extra_at = 28;
    const int flag = zip::get2(at + 6);
    if (zip::get4(at) != zip::local_signature || flag != zip::flag_descriptor ||
        zip::get2(at + method_at) != zip_entry::deflated)
        return false;
    const long data_at =
        one.offset + zip::local_size + zip::get2(at + name_at) + zip::get2(at + extra_at);
    if (!read_at(file_, packed_, one.csize + zip::descriptor_size, data_at))
        return false;
    const unsigned char* told = bytes_of(packed_) + one.csize;
    return zip::get4(told) == zip::descriptor_signature && zip::get4(told + 4) == one.crc &&
           zip::get4(told + 8) == static_cast<unsigned long>(one.csize) &&
           zip::get4(told + 12) == static_cast<unsigned long>(one.size);
}

std::unique_ptr<inflate_ahead::entry_data> worker::inflate(const wanted& one) {
    if (!read_packed(one) || ::inflateReset(&stream_) != Z_OK)
        return nullptr;
    auto data = std::make_unique<inflate_ahead::entry_data>();
    data->bytes.resize(static_cast<size_t>(one.size));
    stream_.next_in = bytes_of(packed_);
    stream_.avail_in = static_cast<unsigned>(one.csize);
    stream_.next_out = bytes_of(data->bytes);
    stream_.avail_out = static_cast<unsigned>(one.size);
    if (::inflate(&stream_, Z_FINISH) != Z_STREAM_END || stream_.avail_in || stream_.avail_out ||
        ::crc32(0, bytes_of(data->bytes), static_cast<unsigned>(one.size)) != one.crc)
        return nullptr;
    return data;
}

} // namespace

struct inflate_ahead::shared {
    std::string path;
    std::string (*digest)(const std::string&) = nullptr;
    std::vector<wanted> entries; // in the order of the container
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t came = PTHREAD_COND_INITIALIZER;
    pthread_cond_t went = PTHREAD_COND_INITIALIZER;
    std::deque<inflated> ready;
    long waiting = 0;  // bytes in `ready`
    long passed = -1;  // the reader has asked for everything up to this offset
    long reached = -1; // offset of the last entry that the thread has done with
    bool reader_waits = false;
    bool ends = false; // the owner goes
    bool runs = false;
    pthread_t thread{};

    bool wait_for_room();
    void hand_over(const wanted& one, std::unique_ptr<entry_data> data);
    void work();
    void finish();
};

// False: nobody wants more.
bool inflate_ahead::shared::wait_for_room() {
    ::pthread_mutex_lock(&lock);
    while (!ends && waiting >= most_waiting)
        ::pthread_cond_wait(&went, &lock);
    const bool goes_on = !ends;
    ::pthread_mutex_unlock(&lock);
    return goes_on;
}

void inflate_ahead::shared::hand_over(const wanted& one, std::unique_ptr<entry_data> data) {
    ::pthread_mutex_lock(&lock);
    reached = one.offset;
    if (data && one.offset >= passed) {
        waiting += one.size;
        ready.push_back({one.offset, one.csize, std::move(data)});
    }
    if (reader_waits)
        ::pthread_cond_signal(&came);
    ::pthread_mutex_unlock(&lock);
}

void inflate_ahead::shared::work() {
    worker with(path.c_str());
    for (const auto& one : entries) {
        if (!with.good() || !wait_for_room())
            break;
        auto data = with.inflate(one);
        if (data && digest)
            data->digest = digest(data->bytes);
        hand_over(one, std::move(data));
    }
    finish();
}

void inflate_ahead::shared::finish() {
    ::pthread_mutex_lock(&lock);
    reached = zip::largest;
    ::pthread_cond_signal(&came);
    ::pthread_mutex_unlock(&lock);
}

inflate_ahead::inflate_ahead(const char* path, const vector& directory,
                             std::string (*digest)(const std::string&))
    : shared_(std::make_unique<shared>()) {
    shared_->path = path;
    shared_->digest = digest;
    for (int i = 0; i < directory.size(); ++i) {
        const auto* one = directory.at<zip_entry>(i);
        if (one && one->method == zip_entry::deflated && one->size > 0 &&
            one->size <= largest_entry && one->csize > 0 && one->csize <= largest_entry &&
            one->offset >= 0)
            shared_->entries.push_back(
                {one->offset, one->csize, one->size, static_cast<unsigned long>(one->crc)});
    }
    std::sort(shared_->entries.begin(), shared_->entries.end(),
              [](const wanted& a, const wanted& b) { return a.offset < b.offset; });
    if (shared_->entries.empty())
        return;
    sigset_t all, before; // signals are for the thread that works
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const auto run = [](void* of) -> void* {
        static_cast<shared*>(of)->work();
        return nullptr;
    };
    shared_->runs = ::pthread_create(&shared_->thread, nullptr, run, shared_.get()) == 0;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

inflate_ahead::~inflate_ahead() {
    if (!shared_->runs)
        return;
    ::pthread_mutex_lock(&shared_->lock);
    shared_->ends = true;
    ::pthread_cond_signal(&shared_->went);
    ::pthread_mutex_unlock(&shared_->lock);
    ::pthread_join(shared_->thread, nullptr);
}

std::unique_ptr<inflate_ahead::entry_data> inflate_ahead::take(long offset, long& packed) {
    shared& all = *shared_;
    if (!all.runs)
        return nullptr;
    const auto same = std::lower_bound(all.entries.begin(), all.entries.end(), offset,
                                       [](const wanted& a, long at) { return a.offset < at; });
    if (same == all.entries.end() || same->offset != offset)
        return nullptr;
    std::unique_ptr<entry_data> data;
    ::pthread_mutex_lock(&all.lock);
    all.passed = offset;
    const bool was_full = all.waiting > few_waiting;
    for (;;) {
        while (!all.ready.empty() && all.ready.front().offset <= offset) {
            inflated& first = all.ready.front();
            all.waiting -= static_cast<long>(first.data->bytes.size());
            if (first.offset == offset) {
                packed = first.packed;
                data = std::move(first.data);
            }
            all.ready.pop_front();
        }
        if (was_full && all.waiting <= few_waiting)
            ::pthread_cond_signal(&all.went);
        if (data || all.reached >= offset)
            break;
        all.reader_waits = true;
        ::pthread_cond_wait(&all.came, &all.lock);
        all.reader_waits = false;
    }
    ::pthread_mutex_unlock(&all.lock);
    return data;
}

} // namespace km
