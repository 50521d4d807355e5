// inflate_stream_ahead: entries of a stream, inflated on a second processor
// format: docs/formats/zip.md
// invariants: nothing is taken from the stream; no entry is given that its reader would refuse; the
// reader never waits for bytes that only he can fetch
#include "bytes_ahead.h"
#include "crc.h"
#include "detail_inflate_ahead.h"
#include "detail_zip_bytes.h"
#include "zip_entry.h"

#include <algorithm>

namespace km {

namespace {

constexpr long portion = 16384;
constexpr long some_more = 64;
constexpr long longest_name = 256;

enum class looked { entry, too_little, other };

// Looks through what came from a border of entries on.
class entry_finder {
  public:
    explicit entry_finder(bytes_ahead& stream)
        : stream_(stream), scratch_(largest_ahead, '\0'), block_(portion, '\0') {}
    // `other`: what stands there is for its reader alone, or it is gone.
    looked look(long offset, entry_place& one, std::string& bytes);

  private:
    looked copy(long offset, long length);
    looked read_head(long offset, entry_place& one);
    looked inflate(long offset, entry_place& one);
    looked compare(long offset, const entry_place& one);
    const unsigned char* block() const {
        return reinterpret_cast<const unsigned char*>(block_.data());
    }
    unsigned char* scratch() { return reinterpret_cast<unsigned char*>(scratch_.data()); }

    bytes_ahead& stream_;
    entry_inflater inflater_;
    std::string scratch_, block_;
};

// All of them, to the block.
looked entry_finder::copy(long offset, long length) {
    const long got = stream_.copy(offset, reinterpret_cast<unsigned char*>(block_.data()), length);
    return got == length ? looked::entry : got < 0 ? looked::other : looked::too_little;
}

looked entry_finder::read_head(long offset, entry_place& one) {
    if (const looked got = copy(offset, zip::local_size); got != looked::entry)
        return got;
    const unsigned char* head = block();
    const int name_length = zip::get2(head + 26), extra_length = zip::get2(head + 28);
    one.offset = offset;
    one.size = static_cast<long>(zip::get4(head + 22));
    if (zip::get4(head) != zip::local_signature || zip::get2(head + 6) != zip::flag_descriptor ||
        zip::get2(head + 8) != zip_entry::deflated || one.size < 1 || one.size > largest_ahead ||
        name_length < 1 || name_length > longest_name || extra_length)
        return looked::other;
    const looked got = copy(offset + zip::local_size, name_length);
    if (got == looked::entry)
        one.name.assign(block_, 0, static_cast<size_t>(name_length));
    return got;
}

looked entry_finder::inflate(long offset, entry_place& one) {
    if (!inflater_.begin(scratch(), one.size))
        return looked::other;
    const long count = std::min(portion, one.size + some_more); // mostly all of it
    for (auto step = entry_inflater::step::more; step != entry_inflater::step::ended;) {
        const long got = stream_.copy(offset + inflater_.taken(),
                                      reinterpret_cast<unsigned char*>(block_.data()), count);
        if (got < 1)
            return got < 0 ? looked::other : looked::too_little;
        step = inflater_.put(block(), got);
        if (step == entry_inflater::step::damaged || inflater_.taken() > largest_ahead)
            return looked::other;
    }
    one.csize = inflater_.taken();
    return inflater_.given() == one.size ? looked::entry : looked::other;
}

looked entry_finder::compare(long offset, const entry_place& one) {
    if (const looked got = copy(offset, zip::descriptor_size); got != looked::entry)
        return got;
    CRC32 sum;
    sum.update(scratch(), static_cast<int>(one.size));
    const unsigned char* told = block();
    const bool is_same = zip::get4(told) == zip::descriptor_signature &&
                         static_cast<long>(zip::get4(told + 4)) == sum.get_value() &&
                         static_cast<long>(zip::get4(told + 8)) == one.csize &&
                         static_cast<long>(zip::get4(told + 12)) == one.size;
    return is_same ? looked::entry : looked::other;
}

looked entry_finder::look(long offset, entry_place& one, std::string& bytes) {
    looked got = read_head(offset, one);
    const long data_at = offset + zip::local_size + static_cast<long>(one.name.size());
    if (got == looked::entry)
        got = inflate(data_at, one);
    if (got == looked::entry)
        got = compare(data_at + one.csize, one);
    if (got == looked::entry)
        bytes.assign(scratch_, 0, static_cast<size_t>(one.size));
    return got;
}

struct entries_of_stream : inflate_ahead::shared, bytes_ahead::listener {
    explicit entries_of_stream(bytes_ahead& stream) : stream_(stream), finder_(stream) {}
    ~entries_of_stream() override;
    void listen() { stream_.set_listener(this); }
    bool inflate_next() override;
    bool has_ended() const override { return false; }
    bool is_wanted(long) const override { return true; }
    bool will_come(long offset) override;
    void give_up() override { at_ = nowhere; }
    void bytes_came() override { signal(); }

  private:
    static constexpr long nowhere = -1;

    bytes_ahead& stream_;
    entry_finder finder_; // of the thread alone
    long at_ = nowhere;   // the border where the thread looks next
    bool is_busy_ = false;
    long enough_ = 0;        // until the stream has come that far nothing is to be found at `at_`
    long refused_ = nowhere; // there stands what the thread does not give
};

entries_of_stream::~entries_of_stream() {
    stream_.set_listener(nullptr);
    end();
}

// What was looked through in vain is looked through again when as much has come once more: however
// slowly it comes, no byte is inflated many times.
bool entries_of_stream::inflate_next() {
    if (at_ == nowhere || !has_room() || stream_.end() < enough_)
        return false;
    const long offset = at_;
    const long end = stream_.end();
    is_busy_ = true;
    ::pthread_mutex_unlock(&lock);
    entry_place one;
    auto data = std::make_unique<inflate_ahead::entry_data>();
    const looked got = finder_.look(offset, one, data->bytes);
    if (got == looked::entry && digest)
        data->digest = digest(data->bytes);
    ::pthread_mutex_lock(&lock);
    is_busy_ = false;
    enough_ = got == looked::too_little ? end + std::max(1L, end - offset) : 0;
    if (got == looked::other) {
        refused_ = offset;
        at_ = nowhere;
    }
    if (got == looked::entry) {
        at_ = offset + zip::local_size + static_cast<long>(one.name.size()) + one.csize +
              zip::descriptor_size;
        hand_over(one, std::move(data));
    }
    wake_reader();
    return true;
}

// The reader tells a border: a thread that stands still before it, or does not know any, goes on
// there.
bool entries_of_stream::will_come(long offset) {
    if (ends || refused_ == offset || at_ > offset)
        return false;
    if (is_busy_)
        return true;
    if (at_ == offset && enough_) { // the reader fetches what is missing, and reads it himself
        at_ = nowhere;
        enough_ = 0;
        refused_ = offset;
        return false;
    }
    if (at_ != offset)
        enough_ = 0;
    at_ = offset;
    ::pthread_cond_signal(&went);
    return true;
}

} // namespace

inflate_ahead::inflate_ahead(bytes_ahead& stream, std::string (*digest)(const std::string&),
                             entry_work* work) {
    auto of_stream = std::make_unique<entries_of_stream>(stream);
    of_stream->digest = digest;
    of_stream->work = work;
    of_stream->start();
    of_stream->listen();
    shared_ = std::move(of_stream);
}

} // namespace km
