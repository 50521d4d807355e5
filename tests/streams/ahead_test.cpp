// What a second processor inflates and deflates is what the first one would have made.
#include "bytes_ahead.h"
#include "deflating_channel.h"
#include "entry_ahead.h"
#include "inflate_ahead.h"
#include "zipping_channel.h"

#include "support/coded.h"
#include "support/scratch.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <mutex>
#include <string>

using namespace std::string_literals;
using km_test::raw;

namespace {

std::string text_of(int i, int length) {
    std::string text;
    for (unsigned x = static_cast<unsigned>(i); text.size() < static_cast<size_t>(length);
         x += 7919)
        text += std::to_string(x * x) + " ";
    return text;
}

// Bytes that come in parts, whenever all that came was read.
class arriving : public km::input_channel, public km::bytes_ahead {
  public:
    arriving(const std::string& bytes, size_t part, size_t kept)
        : bytes_(bytes), part_(part), kept_(kept) {}
    int read() override {
        unsigned char byte = 0;
        return read(&byte, 1) == 1 ? byte : -1;
    }
    int read(unsigned char* to, int length) override {
        {
            const std::lock_guard<std::mutex> locked(lock_);
            if (at_ == came_)
                came_ = std::min(bytes_.size(), came_ + part_);
            length = static_cast<int>(std::min(static_cast<size_t>(length), came_ - at_));
            bytes_.copy(reinterpret_cast<char*>(to), static_cast<size_t>(length), at_);
            at_ += static_cast<size_t>(length);
        }
        if (listener_)
            listener_->bytes_came();
        return length ? length : -1;
    }
    int get_error() override { return 0; }
    long copy(long offset, unsigned char* to, long length) override {
        const std::lock_guard<std::mutex> locked(lock_);
        const auto from = static_cast<size_t>(offset);
        if (from + kept_ < at_)
            return -1;
        if (from >= came_)
            return 0;
        const size_t count = std::min(static_cast<size_t>(length), came_ - from);
        bytes_.copy(reinterpret_cast<char*>(to), count, from);
        return static_cast<long>(count);
    }
    long end() override {
        const std::lock_guard<std::mutex> locked(lock_);
        return static_cast<long>(came_);
    }
    void set_listener(listener* one) override { listener_ = one; }

  private:
    const std::string& bytes_;
    const size_t part_, kept_;
    std::mutex lock_;
    size_t at_ = 0, came_ = 0;
    listener* listener_ = nullptr;
};

constexpr int entries = 12;

std::string container(int length) {
    km::array_output_channel out(1024);
    km::zipping_channel zip(&out);
    for (int i = 0; i < entries; ++i) {
        auto* one = new km::zip_entry(("d/" + std::to_string(i)).c_str());
        one->method = i % 5 == 3 ? km::zip_entry::stored : km::zip_entry::deflated;
        const std::string text = text_of(i, length);
        one->size = static_cast<long>(text.size());
        one->time = 0;
        zip.put_next_entry(one);
        zip.write(raw(text), static_cast<int>(text.size()));
    }
    zip.finish();
    return km_test::bytes_of(out);
}

// All that a reader finds, with the offsets at which he found it and the error in the end.
std::string found_in(const std::string& bytes, size_t part, size_t kept, bool with_helper,
                     int& given) {
    arriving stream(bytes, part, kept);
    stream.inhibit(1);
    km::unzipping_channel zip(&stream);
    zip.set_skip_tail(0);
    std::unique_ptr<km::inflate_ahead> helper;
    if (with_helper)
        helper = std::make_unique<km::inflate_ahead>(stream);
    std::string all;
    while (km::zip_entry* one = zip.get_next_entry()) {
        all += std::to_string(zip.get_bytes_read()) + one->get_name() + "\n";
        long packed = 0;
        if (const auto data = helper ? helper->take(zip.get_bytes_read(), packed) : nullptr) {
            ++given;
            zip.current_entry()->csize = packed;
            zip.close_entry();
            all += data->bytes;
        }
        unsigned char block[700];
        for (int got; (got = zip.read(block, sizeof block)) > 0;)
            all.append(reinterpret_cast<const char*>(block), static_cast<size_t>(got));
        all += std::to_string(zip.get_bytes_read()) + "\n";
    }
    return all + std::to_string(zip.get_error());
}

int expect_no_difference(const std::string& bytes, size_t part, size_t kept,
                         const std::string& what) {
    int given = 0;
    EXPECT_TRUE(found_in(bytes, part, kept, false, given) ==
                found_in(bytes, part, kept, true, given))
        << what;
    return given;
}

} // namespace

TEST(InflateAheadOfStream, GivesWhatItsReaderWouldFind) {
    constexpr size_t all = 1 << 20, kept = 1 << 16;
    for (const int length : {1, 300, 40000}) {
        const std::string bytes = container(length);
        EXPECT_EQ(expect_no_difference(bytes, all, kept, "all is there"), 10) << length;
        for (const size_t part : {7, 5000, 100000})
            for (const size_t behind : {size_t{0}, kept})
                expect_no_difference(bytes, part, behind, std::to_string(part));
    }
}

// An entry that is bent at any place, and a stream that ends at any.
TEST(InflateAheadOfStream, LeavesFaultsToTheReader) {
    constexpr size_t all = 1 << 20, kept = 1 << 16;
    const std::string bytes = container(20);
    const size_t begin = bytes.find("PK\3\4", 1), end = bytes.find("PK\3\4", begin + 1);
    for (size_t at = begin; at < end; ++at) {
        for (const int bit : {0, 3, 7}) {
            std::string bent = bytes;
            bent[at] = static_cast<char>(bent[at] ^ (1 << bit));
            expect_no_difference(bent, all, kept, std::to_string(at));
        }
        expect_no_difference(bytes.substr(0, at), 50, kept, "cut at " + std::to_string(at));
    }
    std::string forged = bytes; // a size that no byte stands behind
    forged.replace(begin + 22, 4, "\xff\xff\xff\x7f"s);
    expect_no_difference(forged, all, kept, "forged");
}

TEST(DeflatingChannel, MakesTheBytesOfTheContainer) {
    km_test::scratch_dir dir;
    for (const int level : {-1, 1})
        for (const int length : {0, 1, 4096, 65536, 65537, 3 * 65536, 3000000}) {
            const std::string text = length ? text_of(1, length).substr(0, length) : "";
            dir.write("file", text);
            km::array_output_channel out(1024);
            km::zipping_channel zip(&out);
            zip.set_level(level);
            zip.add(km::pathname(dir.at("file").c_str()), 1, "x", 1);
            zip.finish();
            km::deflating_channel beside(level);
            for (size_t at = 0; at < text.size(); at += 8191)
                beside.write(raw(text) + at,
                             static_cast<int>(std::min<size_t>(8191, text.size() - at)));
            const auto data = beside.finish();
            const std::string whole = km_test::bytes_of(out);
            constexpr size_t begin = 31;
            EXPECT_EQ(data.size, length);
            EXPECT_TRUE(whole.compare(begin, data.bytes.size(), data.bytes) == 0 &&
                        whole.compare(begin + data.bytes.size(), 4, "PK\7\x08") == 0)
                << level << " " << length;
            EXPECT_EQ(km_test::raw(whole)[begin + data.bytes.size() + 4], data.crc & 255);
        }
    km::deflating_channel dropped(1); // whoever fails in the middle drops it
    const std::string much(1000000, 'x');
    dropped.write(raw(much), static_cast<int>(much.size()));
}

namespace {

// A large entry, and one behind it.
std::string two_entries(const std::string& first) {
    km::array_output_channel out(1024);
    km::zipping_channel zip(&out);
    for (const std::string& text : {first, "behind"s}) {
        auto* one = new km::zip_entry(text == first ? "first" : "second");
        one->size = static_cast<long>(text.size());
        one->time = 0;
        zip.put_next_entry(one);
        zip.write(raw(text), static_cast<int>(text.size()));
    }
    zip.finish();
    return km_test::bytes_of(out);
}

// The reader of a container, which stands in its first entry.
struct standing_reader {
    explicit standing_reader(const std::string& bytes)
        : source(raw(bytes), static_cast<int>(bytes.size())), zip(&source) {
        source.inhibit(1);
        zip.set_skip_tail(0);
        zip.get_next_entry();
    }
    bool has_second() {
        const km::zip_entry* next = zip.get_next_entry();
        return next && next->get_name() == "second"s;
    }
    km::array_input_channel source;
    km::unzipping_channel zip;
};

std::string all_of(km::input_channel& from, int at_a_time) {
    std::string all, block(static_cast<size_t>(at_a_time), '\0');
    for (int got; (got = from.read(reinterpret_cast<unsigned char*>(block.data()), at_a_time)) > 0;)
        all.append(block, 0, static_cast<size_t>(got));
    return all;
}

} // namespace

TEST(EntryAhead, GivesTheEntryAndLeavesItsReaderWhereItWouldBe) {
    for (const int length : {1, 65536, 65537, 700000, 3000000})
        for (const int at_a_time : {997, 65536, 1 << 20}) {
            const std::string text = text_of(5, length);
            const std::string bytes = two_entries(text);
            standing_reader reader(bytes);
            km::entry_ahead ahead(reader.zip);
            EXPECT_TRUE(all_of(ahead, at_a_time) == text) << length << " " << at_a_time;
            EXPECT_EQ(ahead.read(), -1);
            ahead.close_entry();
            EXPECT_EQ(ahead.get_error(), 0);
            EXPECT_TRUE(reader.has_second()) << length << " " << at_a_time;
        }
}

TEST(EntryAhead, MayBeLeftAnywhere) {
    const std::string bytes = two_entries(text_of(7, 2000000));
    for (const int taken : {0, 1, 65536, 70000, 600000, 1999999}) {
        standing_reader reader(bytes);
        {
            km::entry_ahead ahead(reader.zip);
            for (int i = 0; i < taken; ++i)
                ASSERT_GE(ahead.read(), 0);
            if (taken % 2) {
                EXPECT_EQ(ahead.get_error(), 0);
            }
        }
        EXPECT_EQ(reader.zip.close_entry(), 1) << taken;
        EXPECT_TRUE(reader.has_second()) << taken;
    }
}

TEST(EntryAhead, AFaultOfTheEntryIsItsOwn) {
    const std::string text = text_of(9, 900000);
    const std::string good = two_entries(text);
    for (size_t at = 40; at < good.size(); at += good.size() / 37) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
        standing_reader alone(bytes), helped(bytes);
        const bool is_same = all_of(alone.zip, 65536) == text;
        km::entry_ahead ahead(helped.zip);
        EXPECT_EQ(all_of(ahead, 2048) == text, is_same) << at;
        EXPECT_EQ(ahead.get_error(), alone.zip.get_error()) << at;
    }
}
