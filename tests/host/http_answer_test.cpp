// What answers of a server are taken for.
#include "http_answer.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using kmhost::http_answer;
using kmhost::net_fault;
using kmhost::source_identity;

namespace {
http_answer answer_of(const std::vector<std::string>& lines) {
    http_answer answer;
    for (const auto& line : lines)
        EXPECT_TRUE(answer.take_line(line.data(), line.size()));
    return answer;
}
} // namespace

TEST(HttpAnswer, IsJudgedByStatusPlaceAndIdentity) {
    const source_identity known{"\"a\"", "Mon, 01 Jan 2024 00:00:00 GMT", 100};
    struct row {
        long status, from;
        std::vector<std::string> lines;
        source_identity expected;
        net_fault fault;
        long skip;
    };
    const row rows[] = {
        {200, 0, {"Content-Length: 100\r\n"}, {}, net_fault::none, 0},
        {200, 40, {"Content-Length: 100\r\n", "ETag: \"a\"\r\n"}, known, net_fault::none, 40},
        {200, 40, {"Content-Length: 100", "ETag: W/\"a\""}, known, net_fault::none, 40},
        {200, 40, {"ETag: \"b\""}, known, net_fault::changed, 0},
        {200, 40, {"content-length: 101"}, known, net_fault::changed, 0},
        {200, 40, {"Last-Modified: Tue, 02 Jan 2024 00:00:00 GMT"}, known, net_fault::changed, 0},
        // The mark tells more than the date.
        {200, 0, {"ETag: \"a\"", "Last-Modified: x"}, known, net_fault::none, 0},
        {206, 40, {"Content-Range: bytes 40-99/100", "ETag: \"a\""}, known, net_fault::none, 0},
        {206, 40, {"Content-Range: bytes 40-99/*"}, known, net_fault::none, 0},
        {206, 40, {"Content-Range: bytes 40-99/101"}, known, net_fault::changed, 0},
        {206, 40, {"Content-Range: bytes 41-99/100"}, known, net_fault::refused, 0},
        {206, 40, {"Content-Range: bytes -40-99/100"}, known, net_fault::refused, 0},
        {206, 40, {"Content-Range: lines 40-99/100"}, known, net_fault::refused, 0},
        {206, 40, {}, known, net_fault::refused, 0},
        {206, 0, {"Content-Range: bytes 0-99/100"}, {}, net_fault::none, 0},
        {416, 40, {}, known, net_fault::changed, 0},
        {200, 0, {"Content-Encoding: GZIP"}, {}, net_fault::refused, 0},
        {200, 0, {"Content-Encoding: identity"}, {}, net_fault::none, 0},
        {204, 0, {}, {}, net_fault::refused, 0},
        {304, 0, {}, {}, net_fault::refused, 0},
        {401, 0, {}, {}, net_fault::refused, 0},
        {404, 0, {}, {}, net_fault::missing, 0},
        {410, 0, {}, {}, net_fault::missing, 0},
        {408, 0, {}, {}, net_fault::lost, 0},
        {429, 0, {}, {}, net_fault::lost, 0},
        {500, 0, {}, {}, net_fault::lost, 0},
        {503, 0, {}, {}, net_fault::lost, 0},
    };
    for (const row& one : rows) {
        const auto verdict = answer_of(one.lines).judge(one.status, one.from, one.expected);
        EXPECT_EQ(verdict.fault, one.fault) << one.status << " " << one.from;
        EXPECT_EQ(verdict.skip, one.skip) << one.status << " " << one.from;
        EXPECT_EQ(verdict.reason.empty(), one.fault == net_fault::none) << one.status;
    }
}

TEST(HttpAnswer, OfAChainTheLastCountsAndTheHeadHasALimit) {
    http_answer answer = answer_of({"HTTP/1.1 302 Found\r\n", "ETag: \"x\"\r\n", "\r\n",
                                    "HTTP/1.1 200 All right\r\n", "Content-Length: 7\r\n"});
    EXPECT_EQ(answer.identity(200).etag, "");
    EXPECT_EQ(answer.identity(200).size, 7);
    EXPECT_EQ(answer.status_text(), "200 All right");
    const std::string line = "HTTP/1.1 302 " + std::string(1000, 'x');
    int taken = 0;
    while (taken < 1000 && answer.take_line(line.data(), line.size()))
        ++taken;
    EXPECT_LT(taken, 200);
}

TEST(HttpAnswer, NumbersThatAreNoneAreUnknown) {
    for (const char* text : {"-5", "1e3", "0x10", " ", "99999999999999999999", "12 13"})
        EXPECT_EQ(answer_of({std::string("Content-Length: ") + text}).identity(200).size, -1)
            << text;
}
