// Readers and channels at the edges: text out of bytes, the network's frame, translation, tokens.
#include "background_thread.h"
#include "base/uxl.h"
#include "file.h"
#include "ioch_channel.h"
#include "istream_reader.h"
#include "stream_channel.h"
#include "token_channel.h"
#include "translate_channel.h"
#include "variable_list.h"

#include "support/scratch.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

using namespace std::string_literals;
using km::pathname;

namespace {

// A stream that gives at most `step` bytes a read and ends with an error, if it has one.
class trickle : public km::net_stream_input_channel {
  public:
    explicit trickle(std::string data, int step = 1 << 20, int failure = 0)
        : data_(std::move(data)), step_(step), failure_(failure) {}
    ~trickle() override { ++gone; }
    using net_stream_input_channel::read;
    int read(unsigned char* buffer, int length) override {
        largest = std::max(largest, length);
        if (at_ == data_.size()) {
            error_ = failure_;
            return -1;
        }
        const size_t got = data_.copy(reinterpret_cast<char*>(buffer),
                                      static_cast<size_t>(std::min(length, step_)), at_);
        at_ += got;
        return static_cast<int>(got);
    }
    void force_close() override { ++closed; }
    int largest = 0;
    int closed = 0;
    static inline int gone = 0;

  private:
    std::string data_;
    size_t at_ = 0;
    int step_;
    int failure_;
};

std::string drain(km::input_channel& channel, int length) {
    std::vector<unsigned char> block(static_cast<size_t>(length));
    std::string all;
    for (int got; (got = channel.read(block.data(), length)) > 0;)
        all.append(block.begin(), block.begin() + got);
    return all;
}

// Lets the process read and write text in a code page, as far as the machine can make one.
class code_page {
  public:
    explicit code_page(const std::string& name) {
        const std::string make = "localedef -c --no-archive -i POSIX -f " + name + " " +
                                 dir_.at(name) + " >/dev/null 2>&1";
        made = std::system(make.c_str()) >= 0 && dir_.exists(name);
        ::setenv("LOCPATH", dir_.path().c_str(), 1);
        ::setenv("LC_ALL", name.c_str(), 1);
        km::uxl_uninit();
#if defined(__SANITIZE_ADDRESS__)
        __lsan_disable(); // the system library loses its copy of LOCPATH
        km::uxl_max_bytes(0);
        __lsan_enable();
#endif
    }
    ~code_page() {
        ::unsetenv("LOCPATH");
        ::unsetenv("LC_ALL");
        km::uxl_uninit();
    }
    bool made = false;

  private:
    km_test::scratch_dir dir_;
};

std::string a(size_t n) { return std::string(n, 'a'); }
const std::string smile = "\xF0\x9F\x98\x80"; // U+1F600, two units

// What the token channel makes of a text; the variables are those of the process's chain.
std::string tokens(const std::string& text, int length = 100) {
    km::variable_list list;
    list.set_value("x", u"value");
    list.set_value("empty", "");
    list.set_value("dollars", km::ustring(1 << 20, u'$'));
    list.set_value(km::ustring(300, u'n'), "long");
    km::variable_list::set_chain(km::variable_list::for_decoder, &list);
    km::token_input_channel channel(&list, new trickle(text));
    const std::string all = drain(channel, length);
    EXPECT_EQ(channel.get_error(), 0);
    return all;
}

} // namespace

TEST(IstreamReader, APairOfUnitsThatDoesNotFitWaitsForTheNextBuffer) {
    trickle source(a(8191) + smile + "\0b"s);
    km::istream_reader reader(&source, 0);
    EXPECT_EQ(reader.fill_buffer(), 8191);
    EXPECT_EQ(reader.fill_buffer(), 4);
    char16_t block[8] = {};
    EXPECT_EQ(reader.read(block, 1, 7), 4);
    EXPECT_EQ(std::u16string(block + 1, 4), u"\xD83D\xDE00\0b"s);
    EXPECT_EQ(reader.read(block, 0, 1), -1);
}

TEST(IstreamReader, AFailureBetweenCharactersIsForTheCallerToAsk) {
    trickle source("ab", 1, km::channel_network);
    EXPECT_EQ(km::istream_reader(&source, 0).skip(10), 2);
    EXPECT_EQ(source.get_error(), km::channel_network);
}

TEST(IstreamReader, ClosesItsChannelOnlyAsItsOwner) {
    for (const int owns : {0, 1}) {
        trickle source("abc");
        {
            km::istream_reader reader(&source, owns);
            EXPECT_EQ(reader.read(), 'a');
            reader.close();
            EXPECT_EQ(reader.read(), -1);
        }
        EXPECT_EQ(source.closed, owns);
    }
}

TEST(IstreamReaderDeathTest, BytesThatAreNoCharacterEndTheProcess) {
    for (const auto& text : {"ab\xFF"s, "ab\xC3"s, "\xED\xA0\x80"s, "\xF0\x9F\x98"s}) {
        trickle source(text);
        km::istream_reader reader(&source, 0);
        EXPECT_EXIT(reader.read(), testing::ExitedWithCode(255), "") << text;
    }
}

TEST(NetStream, IgnoreReadsInBoundedBlocksAndTellsHowFarItCame) {
    trickle source(a(200000) + "b", 50000, km::channel_network);
    EXPECT_EQ(source.ignore(200000), 200000);
    EXPECT_EQ(source.largest, 65536);
    EXPECT_EQ(source.read(), 'b');
    EXPECT_EQ(source.read(), -1);
    EXPECT_EQ(source.ignore(1), -1);
    EXPECT_EQ(source.get_error(), km::channel_network);
    km::net_stream_input_channel frame;
    EXPECT_EQ(frame.read(), -1);
    EXPECT_EQ(frame.ignore(1), 0);
}

TEST(Ioch, ReadsMemoryAndDescriptorsAlike) {
    km_test::scratch_dir dir;
    std::string data = "x" + a(9000) + "yz";
    const int fd = ::open(dir.write("f", data).c_str(), O_RDONLY);
    std::string mine = data;
    const int size = static_cast<int>(data.size());
    km::ioch_input_channel lent(data.data(), size), copied(mine.data(), size, 1), file(fd);
    mine.assign(mine.size(), '?');
    for (km::ioch_input_channel* channel : {&lent, &copied, &file}) {
        std::string block(5000, ' ');
        EXPECT_EQ(channel->read(), 'x');
        EXPECT_EQ(channel->read(reinterpret_cast<unsigned char*>(block.data()), 5000), 5000);
        EXPECT_EQ(block, a(5000));
        EXPECT_EQ(channel->ignore(4000), 4000);
        EXPECT_EQ(drain(*channel, 100), "yz");
        EXPECT_EQ(channel->ignore(5), 0);
        EXPECT_EQ(channel->get_error(), 0);
        channel->close();
        EXPECT_EQ(channel->read(), -1);
    }
    EXPECT_EQ(::close(fd), 0);
}

TEST(Ioch, ErrorsStay) {
    EXPECT_EQ(km::ioch_input_channel(nullptr, 5).get_error(), km::channel_no_memory);
    EXPECT_EQ(km::ioch_input_channel(-1).read(), -1);
    km_test::scratch_dir dir;
    const int fd = ::open(dir.path().c_str(), O_RDONLY);
    km::ioch_input_channel directory(fd);
    EXPECT_EQ(directory.read(), -1);
    EXPECT_EQ(directory.get_error(), km::channel_fatal_read);
    EXPECT_EQ(directory.ignore(1), -1);
    ::close(fd);
}

TEST(TranslateChannel, ACharacterThatABlockCutsComesOutWhole) {
    const std::string text = a(4094) + "\xE2\x82\xAC" + a(4000) + smile;
    for (const int step : {1, 2, 4096}) {
        trickle source(text, step);
        km::translate_input_channel channel(&source);
        EXPECT_EQ(drain(channel, 1000), text);
        EXPECT_EQ(source.closed, 0);
    }
    trickle cut("ab\xE2\x82"s), failing("ab\xE2\x82"s, 10, km::channel_network);
    km::translate_input_channel tail(&cut), failed(&failing), none(nullptr);
    EXPECT_EQ(drain(tail, 100), "ab\xE2\x82");
    EXPECT_EQ(drain(failed, 100), "ab");
    EXPECT_EQ(failed.get_error(), km::channel_network);
    EXPECT_EQ(drain(none, 100), "");
    EXPECT_EQ(none.get_error(), km::channel_no_inner);
}

TEST(Translate, AFileSurvivesTheWayToUtf8AndBack) {
    const code_page japanese("EUC-JP");
    ASSERT_TRUE(japanese.made);
    km_test::scratch_dir dir;
    std::string source = a(4095), expected = a(4095);
    for (int i = 0; i < 5000; ++i)
        source += "\xA4\xA2", expected += "\xE3\x81\x82";
    km::file from(pathname(dir.write("from", source).c_str()));
    const pathname utf8(dir.at("utf8").c_str()), back(dir.at("back").c_str());
    EXPECT_EQ(from.translate_to_utf8(utf8), 1);
    EXPECT_EQ(dir.read("utf8"), expected);
    EXPECT_EQ(km::file(utf8).translate_from_utf8(back), 1);
    EXPECT_EQ(dir.read("back"), source);
    trickle stream(expected, 1000);
    km::translate_input_channel channel(&stream);
    EXPECT_EQ(drain(channel, 700), source);
}

TEST(Translate, AFailureLeavesNoPartOfATargetAndNeverHarmsTheSource) {
    km_test::scratch_dir dir;
    dir.write("target", "old");
    const std::string source = a(9000) + "\xE2\x82";
    km::file from(pathname(dir.write("from", source).c_str()));
    const pathname target(dir.at("target").c_str());
    EXPECT_EQ(km::file(pathname(dir.at("none").c_str())).translate_to_utf8(target), 0);
    EXPECT_EQ(from.translate(target, 2), 0);
    EXPECT_EQ(dir.read("target"), "old");
    EXPECT_EQ(::link(dir.at("from").c_str(), dir.at("same").c_str()), 0);
    EXPECT_EQ(from.translate_from_utf8(pathname(dir.at("same").c_str())), 0);
    EXPECT_EQ(from.translate_to_utf8(target), 1);
    EXPECT_EQ(dir.read("target"), source); // also the character that the end cuts
    struct rlimit old {};
    ::getrlimit(RLIMIT_FSIZE, &old);
    const struct rlimit small { 5000, old.rlim_max };
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &small);
    const int done = from.translate_to_utf8(target);
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(done, 0);
    EXPECT_FALSE(dir.exists("target"));
    EXPECT_EQ(km::file(pathname(dir.path().c_str())).translate_to_utf8(target), 0);
    EXPECT_FALSE(dir.exists("target"));
    EXPECT_EQ(dir.read("from"), source);
}

TEST(TokenChannel, ReferencesAreSeenWholeWhereverABlockEnds) {
    const std::string unknown = "$(" + std::string(300, 'n') + ")";
    std::string empties, mixed, resolved;
    for (int i = 0; i < 200; ++i) {
        empties += "$(empty)";
        mixed += "b$(x)$(none)$";
        resolved += "bvalue$(none)$";
    }
    const struct {
        std::string text, expected;
    } rows[] = {{"", ""},
                {"$(x)", "value"},
                {"a$(empty)", "a"},
                {a(255) + "$(x)" + a(41), a(255) + "value" + a(41)},
                {a(254) + "$(x)", a(254) + "value"},
                {a(255) + "$", a(255) + "$"},
                {a(255) + smile + "$(x)", a(255) + smile + "value"},
                {"$(no" + a(600) + "$(x)", "$(no" + a(600) + "value"},
                {"$(" + a(600) + ")", "$(" + a(600) + ")"},
                {unknown + "$(x)", unknown + "value"}, // longer than the channel looks ahead
                {a(3) + empties + "$(x)", a(3) + "value"},
                {mixed, resolved}};
    for (const auto& row : rows)
        for (const int length : {1, 1000})
            EXPECT_EQ(tokens(row.text, length), row.expected) << row.text;
}

TEST(TokenChannel, ALongValueOfDollarSignsTakesNoLongerThanOtherText) {
    EXPECT_EQ(tokens("$(dollars)$(x)", 1 << 16), std::string(1 << 20, '$') + "value");
}

TEST(TokenChannel, ErrorsOfItsOwnComeFirstAndStay) {
    km::variable_list list;
    list.set_value("broken", km::ustring(1, u'\xDC00'));
    km::variable_list::set_chain(km::variable_list::for_decoder, &list);
    unsigned char block[16];
    {
        km::token_input_channel channel(&list, new trickle("ab$(x)cd$(broken)ef"));
        EXPECT_EQ(channel.skip(2), 2);
        EXPECT_EQ(channel.ignore(4), 4);
        EXPECT_EQ(channel.read(block, 0), 0);
        EXPECT_EQ(channel.read(), 'c');
        EXPECT_EQ(channel.read(block, 16), -1);
        EXPECT_EQ(channel.get_error(), km::channel_corrupted);
        EXPECT_EQ(channel.read(), -1);
        EXPECT_EQ(channel.skip(1), 0);
    }
    km::token_input_channel failed(&list, new trickle("a", 1, km::channel_network));
    EXPECT_EQ(drain(failed, 10), "a");
    EXPECT_EQ(failed.get_error(), km::channel_network);
    EXPECT_EQ(km::token_input_channel(&list, nullptr).read(), -1);
    EXPECT_EQ(km::token_input_channel(&list, nullptr).get_error(), km::channel_no_inner);
    trickle::gone = 0;
    EXPECT_EQ(km::token_input_channel(nullptr, new trickle("a")).read(), -1);
    EXPECT_EQ(trickle::gone, 1);
}

TEST(CodePage, TwoThreadsConvertAtOnce) {
    const code_page japanese("EUC-JP");
    ASSERT_TRUE(japanese.made);
    const std::string bytes = "\xC6\xFC\xCB\xDC\xB8\xEC and \xA5\xC6\xA5\xAD\xA5\xB9\xA5\xC8";
    const km::ustring wanted(bytes.c_str());
    ASSERT_EQ(wanted.length(), 12U);
    const auto count_faults = [&bytes, wanted] {
        int faults = 0;
        for (int i = 0; i < 3000; ++i) {
            const km::ustring text(bytes.c_str());
            faults += !(text == wanted) || text.mbcs_str() != bytes;
        }
        return faults;
    };
    km::meanwhile other(count_faults);
    EXPECT_EQ(count_faults(), 0);
    EXPECT_EQ(other.result(), 0);
}
