// inflate_ahead: entries of a container, inflated on a second processor
// format: docs/formats/zip.md
// invariants: what is given was compared with its checksum and its sizes; the thread ends before
// its owner does
#include "inflate_ahead.h"

#include "detail_inflate_ahead.h"
#include "detail_zip_bytes.h"
#include "zip_entry.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace km {

namespace {
constexpr long most_waiting = 6L << 20;
constexpr long few_waiting = 4L << 20;
constexpr size_t most_worked = 32;   // products that wait: they may hold descriptors
constexpr size_t left_to_reader = 2; // he is there before anything could be made of them
} // namespace

entry_inflater::entry_inflater() : stream_(std::make_unique<z_stream>()) {
    *stream_ = {};
    good_ = ::inflateInit2(stream_.get(), -MAX_WBITS) == Z_OK;
}

entry_inflater::~entry_inflater() {
    if (good_)
        ::inflateEnd(stream_.get());
}

bool entry_inflater::begin(unsigned char* to, long length) {
    stream_->next_out = to;
    stream_->avail_out = static_cast<unsigned>(length);
    return good_ && ::inflateReset(stream_.get()) == Z_OK;
}

entry_inflater::step entry_inflater::put(const unsigned char* bytes, long count) {
    stream_->next_in = const_cast<unsigned char*>(bytes);
    stream_->avail_in = static_cast<unsigned>(count);
    // Room for all of it is there: that way no window is kept between calls that need none.
    const int result = ::inflate(stream_.get(), Z_FINISH);
    if (result == Z_STREAM_END)
        return step::ended;
    const bool can_go_on = result == Z_OK || result == Z_BUF_ERROR;
    return can_go_on && stream_->avail_in == 0 ? step::more : step::damaged;
}

long entry_inflater::taken() const { return static_cast<long>(stream_->total_in); }
long entry_inflater::given() const { return static_cast<long>(stream_->total_out); }

bool inflate_ahead::shared::has_room() const { return waiting < most_waiting; }

void inflate_ahead::shared::wake_reader() {
    if (reader_waits)
        ::pthread_cond_signal(&came);
}

void inflate_ahead::shared::hand_over(const entry_place& one, std::unique_ptr<entry_data> data) {
    if (data && one.offset >= passed) {
        waiting += one.size;
        ready.push_back({one, std::move(data), !work});
    }
    wake_reader();
}

inflate_ahead::shared::inflated* inflate_ahead::shared::due() {
    for (size_t i = left_to_reader; i < ready.size() && i < most_worked; ++i) {
        if (ready[i].worked)
            continue;
        const auto turn = work->is_due(ready[i].of.name);
        if (turn != entry_work::when::never)
            return turn == entry_work::when::now ? &ready[i] : nullptr;
        ready[i].worked = true;
    }
    return nullptr;
}

inflate_ahead::shared::inflated* inflate_ahead::shared::find(long offset) {
    for (inflated& one : ready)
        if (one.of.offset == offset)
            return &one;
    return nullptr;
}

bool inflate_ahead::shared::work_on_next() {
    inflated* chosen = work ? due() : nullptr;
    if (!chosen)
        return false;
    const entry_place of = chosen->of;
    auto data = std::move(chosen->data);
    ::pthread_mutex_unlock(&lock);
    data->product = work->work(of.name, data->bytes);
    ::pthread_mutex_lock(&lock);
    if (inflated* still = find(of.offset)) {
        still->worked = data->product || work->is_due(of.name) != entry_work::when::later;
        still->data = std::move(data);
    }
    wake_reader();
    return true;
}

void inflate_ahead::shared::run() {
    ::pthread_mutex_lock(&lock);
    while (!ends && (!has_ended() || (work && !ready.empty())))
        if (!work_on_next() && !inflate_next())
            ::pthread_cond_wait(&went, &lock);
    give_up();
    wake_reader();
    ::pthread_mutex_unlock(&lock);
}

void inflate_ahead::shared::start() {
    const auto work_on = [](void* of) -> void* {
        static_cast<shared*>(of)->run();
        return nullptr;
    };
    runs = thread.start(work_on, this);
}

void inflate_ahead::shared::end() {
    if (!runs)
        return;
    ::pthread_mutex_lock(&lock);
    ends = true;
    ::pthread_cond_signal(&went);
    ::pthread_mutex_unlock(&lock);
    thread.join();
}

void inflate_ahead::shared::signal() {
    ::pthread_mutex_lock(&lock);
    ::pthread_cond_signal(&went);
    ::pthread_mutex_unlock(&lock);
}

// False: the thread works on it.
bool inflate_ahead::shared::drop_up_to(long offset, std::unique_ptr<entry_data>& data,
                                       long& packed) {
    for (; !ready.empty() && ready.front().of.offset <= offset; ready.pop_front()) {
        inflated& first = ready.front();
        if (first.of.offset == offset) {
            if (!first.data)
                return false;
            packed = first.of.csize;
            data = std::move(first.data);
        }
        waiting -= first.of.size;
    }
    return true;
}

std::unique_ptr<inflate_ahead::entry_data> inflate_ahead::shared::take(long offset, long& packed) {
    if (!runs || !is_wanted(offset))
        return nullptr;
    std::unique_ptr<entry_data> data;
    ::pthread_mutex_lock(&lock);
    passed = offset;
    const bool was_full = waiting > few_waiting;
    for (;;) {
        const bool is_free = drop_up_to(offset, data, packed);
        if (was_full && waiting <= few_waiting)
            ::pthread_cond_signal(&went);
        if (is_free && (data || !will_come(offset)))
            break;
        reader_waits = true;
        ::pthread_cond_wait(&came, &lock);
        reader_waits = false;
    }
    ::pthread_mutex_unlock(&lock);
    return data;
}

namespace {

struct told_entry : entry_place {
    unsigned long crc = 0;
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

// Entries of a file, whose directory was read.
struct entries_of_file : inflate_ahead::shared {
    std::vector<told_entry> entries; // in the order of the container

    entries_of_file(const char* path, const vector& directory);
    ~entries_of_file() override;
    bool inflate_next() override;
    bool has_ended() const override { return next_ == entries.size(); }
    bool is_wanted(long offset) const override;
    bool will_come(long offset) override { return reached_ < offset; }
    void give_up() override { reached_ = zip::largest; }

  private:
    bool read_packed(const told_entry& one);
    std::unique_ptr<inflate_ahead::entry_data> inflate(const told_entry& one);

    int file_;
    size_t next_ = 0;   // the entry to inflate
    long reached_ = -1; // offset of the last entry that the thread has inflated
    entry_inflater inflater_;
    std::string packed_; // the data and the descriptor behind them
};

entries_of_file::entries_of_file(const char* path, const vector& directory)
    : file_(::open(path, O_RDONLY | O_CLOEXEC)) {
    for (int i = 0; i < directory.size() && file_ >= 0; ++i) {
        const auto* one = directory.at<zip_entry>(i);
        if (one && one->get_name() && one->method == zip_entry::deflated && one->size > 0 &&
            one->size <= largest_ahead && one->csize > 0 && one->csize <= largest_ahead &&
            one->offset >= 0)
            entries.push_back({{one->offset, one->csize, one->size, one->get_name()},
                               static_cast<unsigned long>(one->crc)});
    }
    std::sort(entries.begin(), entries.end(),
              [](const told_entry& a, const told_entry& b) { return a.offset < b.offset; });
}

entries_of_file::~entries_of_file() {
    end();
    if (file_ >= 0)
        ::close(file_);
}

bool entries_of_file::is_wanted(long offset) const {
    const auto same = std::lower_bound(entries.begin(), entries.end(), offset,
                                       [](const told_entry& a, long at) { return a.offset < at; });
    return same != entries.end() && same->offset == offset;
}

// The local header may say less than the directory, but nothing else.
bool entries_of_file::read_packed(const told_entry& one) {
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

std::unique_ptr<inflate_ahead::entry_data> entries_of_file::inflate(const told_entry& one) {
    if (!read_packed(one))
        return nullptr;
    auto data = std::make_unique<inflate_ahead::entry_data>();
    data->bytes.resize(static_cast<size_t>(one.size));
    if (!inflater_.begin(bytes_of(data->bytes), one.size) ||
        inflater_.put(bytes_of(packed_), one.csize) != entry_inflater::step::ended ||
        inflater_.taken() != one.csize || inflater_.given() != one.size ||
        ::crc32(0, bytes_of(data->bytes), static_cast<unsigned>(one.size)) != one.crc)
        return nullptr;
    if (digest)
        data->digest = digest(data->bytes);
    return data;
}

bool entries_of_file::inflate_next() {
    if (has_ended() || !has_room())
        return false;
    const told_entry& one = entries[next_++];
    ::pthread_mutex_unlock(&lock);
    auto data = inflate(one);
    ::pthread_mutex_lock(&lock);
    reached_ = has_ended() ? zip::largest : one.offset;
    hand_over(one, std::move(data));
    return true;
}

} // namespace

inflate_ahead::inflate_ahead(const char* path, const vector& directory,
                             std::string (*digest)(const std::string&), entry_work* work) {
    auto of_file = std::make_unique<entries_of_file>(path, directory);
    of_file->digest = digest;
    of_file->work = work;
    if (!of_file->entries.empty())
        of_file->start();
    shared_ = std::move(of_file);
}

inflate_ahead::~inflate_ahead() = default;

std::unique_ptr<inflate_ahead::entry_data> inflate_ahead::take(long offset, long& packed) {
    return shared_->take(offset, packed);
}

void inflate_ahead::look_again() { shared_->signal(); }

} // namespace km
