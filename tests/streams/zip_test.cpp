// The zip container: bytes, round trips, damaged archives.
#include "inflate_ahead.h"
#include "zip_file.h"
#include "zip_time.h"
#include "zipping_channel.h"

#include "support/coded.h"
#include "support/scratch.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using namespace std::string_literals;
namespace fs = std::filesystem;
using km::pathname;
using km_test::raw;

namespace {

km::zip_entry* entry(const char* name, int method, long size) {
    auto* one = new km::zip_entry(name);
    one->method = method;
    one->size = size;
    one->time = km::dostime(2024, 2, 29, 12, 30, 58);
    return one;
}

void put(km::zipping_channel& zip, const char* name, int method, const std::string& data) {
    ASSERT_EQ(zip.put_next_entry(entry(name, method, static_cast<long>(data.size()))), 1);
    zip.write(raw(data), static_cast<int>(data.size()));
}

// A text that compresses and one that does not.
const std::string words = [] {
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += "line " + std::to_string(i * 7919 % 1000) + "\n";
    return text;
}();
const std::string noise = [] {
    std::string text;
    unsigned x = 1;
    for (int i = 0; i < 70000; ++i)
        text += static_cast<char>((x = x * 1103515245 + 12345) >> 16);
    return text;
}();

std::string archive() {
    km::array_output_channel out(1024);
    km::zipping_channel zip(&out);
    put(zip, "SoftwarePackage", 8, words);
    put(zip, "d/00000001", 0, noise);
    put(zip, "d/00000002", 8, "");
    put(zip, "d/00000003", 0, "");
    put(zip, "d/00000004", 8, noise);
    EXPECT_EQ(zip.finish(), 1);
    EXPECT_EQ(zip.get_error(), 0);
    return km_test::bytes_of(out);
}

// Gives at most `step` bytes at a time.
class stepped : public km::array_input_channel {
  public:
    stepped(const std::string& data, int step)
        : km::array_input_channel(raw(data), static_cast<int>(data.size())), step_(step) {}
    int read(unsigned char* buffer, int length) override {
        return array_input_channel::read(buffer, std::min(length, step_));
    }

  private:
    int step_;
};

std::string rest_of(km::unzipping_channel& zip) {
    std::string data;
    unsigned char block[5000];
    for (int got; (got = zip.read(block, sizeof block)) > 0;)
        data.append(reinterpret_cast<const char*>(block), static_cast<size_t>(got));
    return data;
}

// Reads a container to its end; the error, and what the entries held.
int read_all(const std::string& bytes, std::string* all = nullptr) {
    km::unzipping_channel zip(new stepped(bytes, 1 << 20));
    int entries = 0;
    while (zip.get_next_entry() && ++entries <= 5) {
        const std::string data = rest_of(zip);
        if (all)
            *all += data;
        if (entries == 5)
            break;
    }
    return zip.get_error();
}

} // namespace

TEST(Zip, GoldenBytesOfAStoredEmptyFile) {
    km::array_output_channel out(16);
    km::zipping_channel zip(&out);
    put(zip, "a", 0, "");
    EXPECT_EQ(zip.finish(), 1);
    EXPECT_EQ(zip.finish(), 1);
    const std::string time = "\xDD\x63\x5D\x58"s, zero = "\0\0\0\0"s;
    EXPECT_EQ(km_test::bytes_of(out), "PK\3\4\x0A\0\x08\0\0\0"s + time + zero + zero + zero +
                                          "\1\0\0\0a"s + "PK\7\x08"s + zero + zero + zero +
                                          "PK\1\2\x0A\0\x0A\0\x08\0\0\0"s + time + zero + zero +
                                          zero + "\1\0\0\0\0\0"s + zero + zero + zero + "a" +
                                          "PK\5\6\0\0\0\0\1\0\1\0\x2F\0\0\0\x2F\0\0\0\0\0"s);
}

TEST(Zip, EveryEntryComesBackWhateverTheSourceGivesAtATime) {
    const std::string bytes = archive();
    for (const int step : {1, 3, 511, 32768, 1 << 20}) {
        km::unzipping_channel zip(new stepped(bytes, step));
        const std::string* expected[] = {&words, &noise, nullptr, nullptr, &noise};
        for (int i = 0; i < 5; ++i) {
            ASSERT_NE(zip.get_next_entry(), nullptr) << step << " " << i;
            const std::string data = rest_of(zip);
            EXPECT_TRUE(data == (expected[i] ? *expected[i] : ""s)) << step << " " << i;
            EXPECT_EQ(zip.get_error(), 0);
        }
        EXPECT_EQ(zip.get_next_entry(), nullptr);
        EXPECT_EQ(zip.get_error(), km::channel_corrupted);
    }
}

TEST(Zip, EntriesLeftEarlyArePassedOverAndOffsetsAreExact) {
    const std::string bytes = archive();
    km::unzipping_channel zip(new stepped(bytes, 1000));
    unsigned char block[10];
    zip.get_next_entry();
    EXPECT_EQ(zip.get_bytes_read(), 0); // nothing of it was touched
    EXPECT_EQ(zip.read(block, 10), 10);
    ASSERT_NE(zip.get_next_entry(), nullptr);
    const long second = zip.get_bytes_read();
    EXPECT_EQ(bytes.substr(static_cast<size_t>(second), 4), "PK\3\4");
    EXPECT_EQ(zip.read(block, 10), 10);
    ASSERT_NE(zip.get_next_entry(), nullptr);
    EXPECT_STREQ(zip.current_entry()->get_name(), "d/00000002");
    // A reader opened at that offset goes on from there.
    const std::string tail = bytes.substr(static_cast<size_t>(second));
    km::unzipping_channel later(new stepped(tail, 77));
    later.set_bytes_read(second);
    ASSERT_NE(later.get_next_entry(), nullptr);
    EXPECT_TRUE(rest_of(later) == noise);
    later.get_next_entry();
    EXPECT_EQ(later.get_bytes_read(), zip.get_bytes_read());
}

TEST(Zip, ACutArchiveIsAnErrorInEveryEntry) {
    const std::string bytes = archive();
    std::string all;
    ASSERT_EQ(read_all(bytes, &all), 0);
    const size_t directory = bytes.find("PK\1\2");
    for (size_t cut = 0; cut < directory; cut += cut < 200 ? 1 : 997)
        EXPECT_NE(read_all(bytes.substr(0, cut)), 0) << cut;
}

TEST(Zip, FlippedBytesNeverCrashAndDeflatedOnesNeverPass) {
    km::array_output_channel out(64);
    {
        km::zipping_channel zip(&out);
        put(zip, "name", 8, "some text that is deflated, deflated");
        zip.finish();
    }
    const std::string bytes = km_test::bytes_of(out);
    const size_t data = 30 + 4, descriptor = bytes.find("PK\7\x08");
    for (size_t at = 0; at < bytes.size(); ++at)
        for (int bit = 0; bit < 8; ++bit) {
            std::string bent = bytes;
            bent[at] = static_cast<char>(bent[at] ^ (1 << bit));
            std::string all;
            km::unzipping_channel zip(new stepped(bent, 4096));
            if (zip.get_next_entry())
                all = rest_of(zip);
            if (at >= data && at < descriptor + 16) {
                EXPECT_TRUE(zip.get_error() != 0 || all == "some text that is deflated, deflated")
                    << at;
            }
        }
}

namespace {
// What the helper gives of a container whose directory says what `good` says; "-" for nothing.
std::string inflated(const km_test::scratch_dir& dir, const std::string& good, long csize_error) {
    km::zip_file read(dir.at("good").c_str());
    EXPECT_EQ(read.readCEN(), 1);
    const std::unique_ptr<km::vector> entries(read.getCEN());
    entries->at<km::zip_entry>(1)->csize += csize_error;
    km::inflate_ahead helper(dir.at("bent").c_str(), *entries);
    std::string all;
    for (int i = 0; i < entries->size(); ++i) {
        const long offset = entries->at<km::zip_entry>(i)->offset;
        long packed = 0;
        EXPECT_EQ(helper.take(offset + 1, packed), nullptr); // where no entry begins
        const auto data = helper.take(offset, packed);
        all += data ? data->bytes : "-";
        if (data) {
            EXPECT_EQ(good.compare(offset + 30 + 1 + packed, 4, "PK\7\x08"), 0);
        }
    }
    return all;
}
} // namespace

TEST(InflateAhead, GivesWhatIsWholeAndNothingElse) {
    km_test::scratch_dir dir;
    km::array_output_channel out(1024);
    km::zipping_channel zip(&out);
    for (const char* name : {"a", "b", "c"})
        put(zip, name, 8, name == "b"s ? "twice twice twice" : "once");
    put(zip, "s", 0, "stored");
    zip.finish();
    const std::string good = km_test::bytes_of(out);
    dir.write("good", good);
    dir.write("bent", good);
    EXPECT_EQ(inflated(dir, good, 0), "oncetwice twice twiceonce-");
    for (const long error : {-1L, 1L, 1000L, -1000L})
        EXPECT_EQ(inflated(dir, good, error), "once-once-") << error;
    const size_t begin = good.find("PK\3\4", 1), end = good.find("PK\3\4", begin + 1);
    for (size_t at = begin; at < end; ++at)
        for (int bit = 0; bit < 8; ++bit) {
            std::string bent = good;
            bent[at] = static_cast<char>(bent[at] ^ (1 << bit));
            dir.write("bent", bent);
            const std::string all = inflated(dir, good, 0);
            EXPECT_TRUE(all == "once-once-" || all == "oncetwice twice twiceonce-") << at;
        }
    dir.write("bent", good.substr(0, begin + 40));
    EXPECT_EQ(inflated(dir, good, 0), "once---");
    fs::remove(dir.at("bent"));
    EXPECT_EQ(inflated(dir, good, 0), "----");
}

namespace {
// A container at "x" with entries "e0", "e1" and so on; gives its directory.
std::unique_ptr<km::vector> numbered_entries(const km_test::scratch_dir& dir, int count,
                                             const std::string& text) {
    km::array_output_channel out(1024);
    km::zipping_channel zip(&out);
    for (int i = 0; i < count; ++i)
        put(zip, ("e" + std::to_string(i)).c_str(), 8, text + std::to_string(i));
    zip.finish();
    dir.write("x", km_test::bytes_of(out));
    km::zip_file read(dir.at("x").c_str());
    EXPECT_EQ(read.readCEN(), 1);
    return std::unique_ptr<km::vector>(read.getCEN());
}
} // namespace

// Far more than may wait; what is passed over is dropped, and the helper may go in the middle.
TEST(InflateAhead, WaitsForItsReader) {
    km_test::scratch_dir dir;
    const auto entries = numbered_entries(dir, 60, words);
    for (const int last : {0, 30, 60}) {
        km::inflate_ahead helper(dir.at("x").c_str(), *entries);
        long packed = 0;
        for (int i = 0; i < last; i += 7) {
            const auto data = helper.take(entries->at<km::zip_entry>(i)->offset, packed);
            ASSERT_TRUE(data && data->bytes == words + std::to_string(i)) << i;
        }
    }
}

namespace {
// Marks every third entry, slowly.
class marking : public km::entry_work {
  public:
    struct mark : product {
        std::string of;
    };
    when is_due(const std::string& name) override {
        return std::stoi(name.substr(1)) % 3 == 0 ? when::now : when::never;
    }
    std::unique_ptr<product> work(const std::string& name, const std::string& bytes) override {
        ::usleep(300);
        auto made = std::make_unique<mark>();
        made->of = name + bytes;
        return made;
    }
};
} // namespace

// Whoever comes while one is worked on waits for it; what is passed over in the middle of it goes.
TEST(InflateAhead, WorksOnWhatIsDue) {
    km_test::scratch_dir dir;
    const auto entries = numbered_entries(dir, 200, "");
    for (const int step : {1, 2, 5, 40}) {
        marking work;
        km::inflate_ahead helper(dir.at("x").c_str(), *entries, nullptr, &work);
        int marked = 0;
        for (int i = 0; i < 200; i += step) {
            long packed = 0;
            const auto data = helper.take(entries->at<km::zip_entry>(i)->offset, packed);
            ASSERT_TRUE(data && data->bytes == std::to_string(i)) << i;
            if (const auto* made = dynamic_cast<marking::mark*>(data->product.get())) {
                ++marked;
                EXPECT_EQ(i % 3, 0);
                EXPECT_EQ(made->of, "e" + std::to_string(i) + std::to_string(i));
            }
            if (i % 20 == 0)
                ::usleep(5000);
        }
        EXPECT_TRUE(step > 2 || marked > 0);
    }
}

// Who knows the packed length of an entry passes over it without inflating; a wrong one is a fault.
TEST(Zip, AnEntryOfKnownLengthIsPassedOver) {
    const std::string bytes = archive();
    for (const int step : {7, 32768}) {
        km::unzipping_channel zip(new stepped(bytes, step));
        ASSERT_NE(zip.get_next_entry(), nullptr);
        const size_t packed = bytes.find("PK\7\x08") - 30 - std::string("SoftwarePackage").size();
        zip.current_entry()->csize = static_cast<long>(packed);
        EXPECT_EQ(zip.close_entry(), 1);
        EXPECT_EQ(static_cast<size_t>(zip.get_bytes_read()), bytes.find("PK\3\4", 1));
        ASSERT_NE(zip.get_next_entry(), nullptr);
        EXPECT_TRUE(rest_of(zip) == noise);
        km::unzipping_channel wrong(new stepped(bytes, step));
        ASSERT_NE(wrong.get_next_entry(), nullptr);
        wrong.current_entry()->csize = static_cast<long>(packed) + 1;
        EXPECT_EQ(wrong.close_entry(), 0);
        EXPECT_EQ(wrong.get_error(), km::channel_corrupted);
    }
}

TEST(Zip, AbsurdNumbersAndNamesAreRefused) {
    km_test::scratch_dir dir;
    for (const char* name : {"../evil", "/abs", "a/../../b", ".."}) {
        km::array_output_channel out(64);
        {
            km::zipping_channel zip(&out);
            auto* one = entry("x", 8, 1);
            one->set_raw_name(name);
            zip.put_next_entry(one);
            zip.write(raw("x"), 1);
            zip.finish();
        }
        const std::string bytes = km_test::bytes_of(out);
        km::unzipping_channel zip(new stepped(bytes, 4096));
        EXPECT_EQ(zip.extract_file(), 0) << name;
        EXPECT_EQ(zip.get_error(), km::channel_bad_call);
    }
    const std::string head = "PK\3\4\x0A\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s;
    const std::string huge = head + "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s + "short";
    EXPECT_NE(read_all(huge), 0);
    EXPECT_NE(read_all(head + "\xFF\xFF\xFF\x7F\1\0\0\0n"s + "data"), 0);
    EXPECT_NE(read_all("not a zip file at all, but long enough to hold a header"), 0);
}

TEST(Zip, TheWriterRefusesWhatDisagrees) {
    km::array_output_channel out(64);
    {
        km::zipping_channel zip(&out);
        zip.write(raw("x"), 1);
        EXPECT_EQ(zip.get_error(), km::channel_bad_call);
    }
    {
        km::zipping_channel zip(&out);
        EXPECT_EQ(zip.finish(), 0);
        EXPECT_EQ(zip.get_error(), km::channel_disagree);
    }
    {
        km::zipping_channel zip(&out);
        zip.put_next_entry(entry("a", 0, 5));
        zip.write(raw("abc"), 3);
        EXPECT_EQ(zip.close_entry(), 0);
        EXPECT_EQ(zip.get_error(), km::channel_disagree);
    }
    for (const std::string& name : {""s, std::string(65536, 'x')}) {
        km::zipping_channel zip(&out);
        EXPECT_EQ(zip.put_next_entry(entry(name.c_str(), 8, 1)), 0);
        EXPECT_EQ(zip.get_error(), km::channel_bad_call);
    }
    km::zipping_channel zip(&out);
    EXPECT_EQ(zip.add(pathname("/no/such/file"), 1, nullptr), 0);
    EXPECT_EQ(zip.get_error(), km::channel_no_source);
}

TEST(Zip, FilesGoInAndTheDirectoryFindsThem) {
    km_test::scratch_dir dir;
    dir.write("one", words);
    dir.write("sub/two", "");
    const std::string path = dir.at("x.zip");
    {
        km::file_output_channel out(pathname(path.c_str()), 0);
        km::zipping_channel zip(&out);
        EXPECT_EQ(zip.add(pathname(dir.at("one").c_str()), 1, "one", 1), 1);
        EXPECT_EQ(zip.add(pathname(dir.at("one").c_str()), 0, "stored", 1), 1);
        zip.set_comment("a comment");
        EXPECT_EQ(zip.finish(), 1);
    }
    km::zip_file read(path.c_str());
    ASSERT_EQ(read.readCEN(), 1);
    const std::unique_ptr<km::vector> entries(read.getCEN());
    ASSERT_EQ(entries->size(), 2);
    EXPECT_STREQ(entries->at<km::zip_entry>(0)->get_name(), "one");
    EXPECT_EQ(entries->at<km::zip_entry>(1)->size, static_cast<long>(words.size()));
    EXPECT_EQ(read.get_comment(), "a comment");
    km::file_input_channel in{pathname(path.c_str())};
    in.inhibit(1);
    km::unzipping_channel zip(&in);
    EXPECT_EQ(zip.extract_file(pathname(dir.at("new/out").c_str())), 1);
    EXPECT_TRUE(dir.read("new/out") == words);
    dir.write("trailing", dir.read("x.zip") + "x");
    km::zip_file trailing(dir.at("trailing").c_str());
    EXPECT_EQ(trailing.readCEN(), 0);
    dir.write("short", "PK\5\6");
    km::zip_file small(dir.at("short").c_str());
    EXPECT_EQ(small.readCEN(), 0);
}

// Ends with a failure of its own, as a network does.
class failing : public km::array_input_channel {
  public:
    explicit failing(const std::string& data)
        : km::array_input_channel(raw(data), static_cast<int>(data.size())) {}
    int read(unsigned char* buffer, int length) override {
        const int got = array_input_channel::read(buffer, length);
        failed_ = got < 0;
        return got;
    }
    int get_error() override { return failed_ ? km::channel_network : 0; }

  private:
    bool failed_ = false;
};

TEST(Zip, AFailureOfTheSourceIsToldAsItsOwn) {
    const std::string bytes = archive();
    const size_t second = bytes.find("PK\3\4", 4), descriptor = bytes.find("PK\7\x08");
    for (const size_t cut : {size_t{0}, size_t{20}, size_t{33}, size_t{200}, descriptor + 7, second,
                             second + 40, second + 5000}) {
        const std::string head = bytes.substr(0, cut);
        km::unzipping_channel zip(new failing(head));
        while (zip.get_next_entry())
            rest_of(zip);
        EXPECT_EQ(zip.get_error(), km::channel_network) << cut;
    }
}

TEST(Zip, WithoutASourceThereIsNothingToRead) {
    km::unzipping_channel zip(nullptr);
    unsigned char byte = 0;
    EXPECT_EQ(zip.get_error(), km::channel_no_inner);
    EXPECT_EQ(zip.get_next_entry(), nullptr);
    EXPECT_EQ(zip.read(&byte, 1), -1);
    zip.close();
}

TEST(Zip, AnEntryOfAnUnknownMethodIsNotExtracted) {
    km_test::scratch_dir dir;
    std::string bytes = archive();
    bytes[8] = 12;
    km::unzipping_channel zip(new stepped(bytes, 4096));
    EXPECT_EQ(zip.extract_file(pathname(dir.at("out").c_str())), 0);
}

TEST(Zip, TimesAreUtcAndBounded) {
    long seconds = 1709210457; // 2024-02-29 12:40:57 UTC
    EXPECT_EQ(km::unix2dostime(&seconds), km::dostime(2024, 2, 29, 12, 40, 58));
    long early = 5;
    EXPECT_EQ(km::unix2dostime(&early), km::dostime(1980, 1, 1, 0, 0, 0));
    EXPECT_EQ(km::dostime(2200, 1, 1, 0, 0, 0), km::dostime(2107, 12, 31, 23, 59, 58));
}

TEST(CompressingChannelDeathTest, WritingBehindTheEndEndsTheProcess) {
    km::array_output_channel out(64);
    km::compressing_channel channel(&out, new km::compressor, 512);
    channel.write('x');
    channel.finish();
    EXPECT_EXIT(channel.write('y'), testing::ExitedWithCode(1), "");
}
