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
constexpr long most_waiting = 6L << 20;
constexpr long few_waiting = 4L << 20;
constexpr size_t most_worked = 32;   // products that wait: they may hold descriptors
constexpr size_t left_to_reader = 2; // he is there before anything could be made of them

struct wanted {
    long offset, csize, size;
    unsigned long crc;
    std::string name;
};

struct inflated {
    const wanted* of;
    std::unique_ptr<inflate_ahead::entry_data> data; // null while the thread works on it
    bool worked;
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
    entry_work* work = nullptr;
    std::vector<wanted> entries; // in the order of the container
    size_t next = 0;             // the entry to inflate; of the thread alone
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t came = PTHREAD_COND_INITIALIZER;
    pthread_cond_t went = PTHREAD_COND_INITIALIZER;
    std::deque<inflated> ready;
    long waiting = 0;  // bytes in `ready`
    long passed = -1;  // the reader has asked for everything up to this offset
    long reached = -1; // offset of the last entry that the thread has inflated
    bool reader_waits = false;
    bool ends = false; // the owner goes
    bool runs = false;
    pthread_t thread{};

    void run();
    bool inflate_next(worker& with);
    bool work_on_next();
    void hand_over(const wanted& one, std::unique_ptr<entry_data> data);
    void wake_reader();
    inflated* due();
    inflated* find(const wanted* of);
    bool drop_up_to(long offset, std::unique_ptr<entry_data>& data, long& packed);
};

void inflate_ahead::shared::wake_reader() {
    if (reader_waits)
        ::pthread_cond_signal(&came);
}

void inflate_ahead::shared::hand_over(const wanted& one, std::unique_ptr<entry_data> data) {
    reached = next < entries.size() ? one.offset : zip::largest;
    if (data && one.offset >= passed) {
        waiting += one.size;
        ready.push_back({&one, std::move(data), !work});
    }
    wake_reader();
}

// Locked, as the next ones are. False: there is none, or no room for it.
bool inflate_ahead::shared::inflate_next(worker& with) {
    if (next == entries.size() || waiting >= most_waiting)
        return false;
    const wanted& one = entries[next++];
    ::pthread_mutex_unlock(&lock);
    auto data = with.inflate(one);
    if (data && digest)
        data->digest = digest(data->bytes);
    ::pthread_mutex_lock(&lock);
    hand_over(one, std::move(data));
    return true;
}

inflated* inflate_ahead::shared::due() {
    for (size_t i = left_to_reader; i < ready.size() && i < most_worked; ++i)
        if (!ready[i].worked && work->is_due(ready[i].of->name))
            return &ready[i];
    return nullptr;
}

inflated* inflate_ahead::shared::find(const wanted* of) {
    for (inflated& one : ready)
        if (one.of == of)
            return &one;
    return nullptr;
}

bool inflate_ahead::shared::work_on_next() {
    inflated* chosen = work ? due() : nullptr;
    if (!chosen)
        return false;
    const wanted* of = chosen->of;
    auto data = std::move(chosen->data);
    chosen->worked = true;
    ::pthread_mutex_unlock(&lock);
    data->product = work->work(of->name, data->bytes);
    ::pthread_mutex_lock(&lock);
    if (inflated* still = find(of))
        still->data = std::move(data);
    wake_reader();
    return true;
}

void inflate_ahead::shared::run() {
    worker with(path.c_str());
    ::pthread_mutex_lock(&lock);
    if (!with.good())
        next = entries.size();
    while (!ends && (next < entries.size() || (work && !ready.empty())))
        if (!work_on_next() && !inflate_next(with))
            ::pthread_cond_wait(&went, &lock);
    reached = zip::largest;
    wake_reader();
    ::pthread_mutex_unlock(&lock);
}

inflate_ahead::inflate_ahead(const char* path, const vector& directory,
                             std::string (*digest)(const std::string&), entry_work* work)
    : shared_(std::make_unique<shared>()) {
    shared_->path = path;
    shared_->digest = digest;
    shared_->work = work;
    for (int i = 0; i < directory.size(); ++i) {
        const auto* one = directory.at<zip_entry>(i);
        if (one && one->get_name() && one->method == zip_entry::deflated && one->size > 0 &&
            one->size <= largest_entry && one->csize > 0 && one->csize <= largest_entry &&
            one->offset >= 0)
            shared_->entries.push_back({one->offset, one->csize, one->size,
                                        static_cast<unsigned long>(one->crc), one->get_name()});
    }
    std::sort(shared_->entries.begin(), shared_->entries.end(),
              [](const wanted& a, const wanted& b) { return a.offset < b.offset; });
    if (shared_->entries.empty())
        return;
    sigset_t all, before; // signals are for the thread that works
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const auto run = [](void* of) -> void* {
        static_cast<shared*>(of)->run();
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

// False: the thread works on it.
bool inflate_ahead::shared::drop_up_to(long offset, std::unique_ptr<entry_data>& data,
                                       long& packed) {
    for (; !ready.empty() && ready.front().of->offset <= offset; ready.pop_front()) {
        inflated& first = ready.front();
        if (first.of->offset == offset) {
            if (!first.data)
                return false;
            packed = first.of->csize;
            data = std::move(first.data);
        }
        waiting -= first.of->size;
    }
    return true;
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
        const bool is_free = all.drop_up_to(offset, data, packed);
        if (was_full && all.waiting <= few_waiting)
            ::pthread_cond_signal(&all.went);
        if (is_free && (data || all.reached >= offset))
            break;
        all.reader_waits = true;
        ::pthread_cond_wait(&all.came, &all.lock);
        all.reader_waits = false;
    }
    ::pthread_mutex_unlock(&all.lock);
    return data;
}

void inflate_ahead::look_again() {
    ::pthread_mutex_lock(&shared_->lock);
    ::pthread_cond_signal(&shared_->went);
    ::pthread_mutex_unlock(&shared_->lock);
}

} // namespace km
