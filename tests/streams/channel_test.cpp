// Channels over memory, files and one another.
#include "channel.h"

#include "support/coded.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

using namespace std::string_literals;
using km::pathname;
using km_test::raw;

namespace {

// Gives a few bytes at a time, and tells whether it was closed.
class slow_channel : public km::input_channel {
  public:
    slow_channel(std::string data, bool* closed) : data_(std::move(data)), closed_(closed) {}
    int read() override {
        return at_ < data_.size() ? static_cast<unsigned char>(data_[at_++]) : -1;
    }
    int read(unsigned char* buffer, int length) override {
        return input_channel::read(buffer, length < 3 ? length : 3);
    }
    void close() override { *closed_ = true; }
    int get_error() override { return 0; }

  private:
    std::string data_;
    size_t at_ = 0;
    bool* closed_;
};

} // namespace

TEST(InputChannel, TheBaseReadsByteByByte) {
    bool closed = false;
    slow_channel channel("abcdef", &closed);
    unsigned char buffer[8];
    EXPECT_EQ(channel.input_channel::read(buffer, 0), 0);
    EXPECT_EQ(channel.input_channel::read(buffer, 4), 4);
    EXPECT_EQ(channel.input_channel::ignore(100), 100);
    EXPECT_EQ(channel.input_channel::read(buffer, 4), -1);
}

TEST(FilterChannel, OwnsItsInnerUnlessItWasInhibited) {
    bool closed = false;
    { km::filter_input_channel filter(new slow_channel("x", &closed)); }
    EXPECT_TRUE(closed);
    closed = false;
    slow_channel mine("x", &closed);
    mine.inhibit(1);
    {
        km::filter_input_channel filter(&mine);
        filter.close();
    }
    EXPECT_FALSE(closed);
}

TEST(BufferedInput, NeverRefillsTwiceInACall) {
    bool closed = false;
    km::buffered_input_channel channel(new slow_channel("abcdefgh", &closed), 4);
    unsigned char buffer[8];
    EXPECT_EQ(channel.read(), 'a');
    EXPECT_EQ(channel.read(buffer, 8), 2);
    EXPECT_EQ(channel.ignore(2), 2);
    EXPECT_EQ(channel.read(), 'f');
    EXPECT_EQ(channel.ignore(-1), 0);
    EXPECT_EQ(channel.read(buffer, 8), 2);
    EXPECT_EQ(channel.read(buffer, 8), -1);
}

TEST(Pushback, ServesItsOwnBytesFirstAndAlone) {
    bool closed = false;
    km::pushback_input_channel channel(new slow_channel("world", &closed), 4);
    channel.unread('o');
    channel.unread(raw("xhellx"), 3, 1);
    unsigned char buffer[100];
    EXPECT_EQ(channel.read(buffer, 100), 4);
    EXPECT_EQ(std::string(buffer, buffer + 4), "helo");
    channel.unread('!');
    EXPECT_EQ(channel.ignore(3), 3);
    EXPECT_EQ(channel.read(), 'r');
    EXPECT_EXIT(channel.unread(raw("12345"), 5, 0), testing::ExitedWithCode(1), "");
}

TEST(BufferedOutput, ALargeBlockKeepsTheOrder) {
    km::array_output_channel inner(2);
    {
        km::buffered_output_channel channel(&inner, 4);
        channel.write('a');
        channel.write(raw("bcdefg"), 6);
        channel.write(raw("hi"), 2);
        EXPECT_EQ(inner.get_count(), 7);
    }
    EXPECT_STREQ(reinterpret_cast<const char*>(inner.get_data()), "abcdefghi");
}

TEST(ArrayInput, IgnoringBehindTheEndEndsIt) {
    const std::string bytes = "abc";
    km::array_input_channel channel(raw(bytes), 3);
    unsigned char buffer[8];
    EXPECT_EQ(channel.read(buffer, 2), 2);
    EXPECT_EQ(channel.ignore(10), 10);
    EXPECT_EQ(channel.read(), -1);
    EXPECT_EQ(channel.read(buffer, 1), -1);
}

TEST(FileChannel, AppendNeedsTheFileAndTheEndIsNoError) {
    km_test::scratch_dir dir;
    const pathname path(dir.at("f").c_str());
    km::file_output_channel missing(path, 1);
    EXPECT_NE(missing.get_error(), 0);
    {
        km::file_output_channel out(path, 0);
        out.write(raw("hello"), 5);
        out.flush();
        EXPECT_EQ(out.get_error(), 0);
    }
    {
        km::file_output_channel out(path, 1);
        out.write('!');
    }
    km::file_input_channel in(path, 4);
    unsigned char buffer[8];
    EXPECT_EQ(in.read(buffer, 8), 2);
    EXPECT_EQ(in.read(), -1);
    EXPECT_EQ(in.get_error(), 0);
    km::file_input_channel none(pathname(dir.at("none").c_str()));
    EXPECT_EQ(none.read(), -1);
    EXPECT_NE(none.get_error(), 0);
}

TEST(FileChannel, AFullDiskIsLatched) {
    km::file_output_channel out(pathname("/dev/full"), 1);
    out.write(raw("x"), 1);
    EXPECT_EQ(out.get_error(), km::file_handle::write_failed);
}
