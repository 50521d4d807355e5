// A digest whose state is kept at a place of a stream, and taken up again there.
#include "digest.h"
#include "stream_digest.h"

#include <gtest/gtest.h>
#include <string>

using kmhost::stream_digest;

namespace {

std::string bytes_of(long count) {
    std::string bytes(static_cast<size_t>(count), '\0');
    unsigned state = 1;
    for (char& one : bytes)
        one = static_cast<char>((state = state * 1103515245U + 12345U) >> 16);
    return bytes;
}

const unsigned char* data(const std::string& bytes, long from = 0) {
    return reinterpret_cast<const unsigned char*>(bytes.data()) + from;
}

std::string whole(const std::string& bytes) {
    km::sha256 sum;
    sum.add(bytes.data(), bytes.size());
    return sum.finish();
}

} // namespace

TEST(StreamDigest, GoesOnFromAStateOfAnyPlaceThatAReaderMayBeAheadOf) {
    const long size = 1700000;
    const std::string bytes = bytes_of(size);
    for (const long at : {0L, 1L, 63L, 64L, 65L, 4096L, 999999L, 1500001L, size}) {
        stream_digest first;
        const long read = std::min(size, at + 200000);
        for (long done = 0; done < read; done += 30000)
            first.add(data(bytes, done), static_cast<size_t>(std::min(30000L, read - done)));
        const std::string state = first.state_at(at);
        ASSERT_FALSE(state.empty()) << at;
        first.add(data(bytes, read), static_cast<size_t>(size - read));
        EXPECT_EQ(first.finish(), whole(bytes)) << at;

        stream_digest second;
        ASSERT_TRUE(second.restore(at, state)) << at;
        EXPECT_EQ(second.position(), at);
        second.add(data(bytes, at), static_cast<size_t>(size - at));
        EXPECT_EQ(second.finish(), whole(bytes)) << at;
    }
}

TEST(StreamDigest, GivesAndTakesNoStateOfAnotherPlace) {
    const std::string bytes = bytes_of(2000000);
    stream_digest digest;
    digest.add(data(bytes), bytes.size());
    EXPECT_EQ(digest.state_at(1000), "");    // too far back
    EXPECT_EQ(digest.state_at(2000001), ""); // ahead
    const std::string state = digest.state_at(1999999);
    ASSERT_FALSE(state.empty());
    for (const auto& [offset, text] : {std::pair{1999998L, state},
                                       {1999999L, state.substr(2)},
                                       {1999999L, state + "0"},
                                       {1999999L, std::string(state.size(), 'x')},
                                       {-1L, state},
                                       {64L, std::string()}}) {
        stream_digest other;
        EXPECT_FALSE(other.restore(offset, text)) << offset;
        other.add(data(bytes), 3);
        EXPECT_EQ(other.finish(), whole(bytes.substr(0, 3)));
    }
}
