// Texts, code pages and numbers.
#include "base/uxl.h"
#include "number_text.h"
#include "ustring.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

using km::ustring;

namespace {

std::string bytes(const ustring& text) { return text.mbcs_str(); }

FILE* file_with(const std::string& content) {
    FILE* file = std::tmpfile();
    std::fwrite(content.data(), 1, content.size(), file);
    std::rewind(file);
    return file;
}

} // namespace

TEST(Ustring, AnyBytesSurviveTheWayThroughSixteenBitText) {
    std::string all;
    for (int i = 1; i < 256; ++i)
        all += static_cast<char>(i);
    const std::string cases[] = {all,
                                 "caf\xC3\xA9",
                                 "\xF0\x9F\x98\x80 pair",
                                 "\xED\xA0\x80 surrogate",
                                 "\xC0\xAF overlong",
                                 "cut \xE2\x82"};
    for (const auto& text : cases)
        EXPECT_EQ(bytes(ustring(text.c_str())), text);
    EXPECT_EQ(ustring("\xF0\x9F\x98\x80").length(), 2u);
    EXPECT_EQ(ustring("\xFF")[0], char16_t{0xDCFF});
}

TEST(Ustring, EditsKeepTextAndTerminator) {
    ustring text("hello");
    text.insert(5, ustring(", world"));
    text.replace(0, 5, u"goodbye", 7);
    text.remove(7, 1).append(3, u'!');
    EXPECT_EQ(bytes(text), "goodbye world!!!");
    EXPECT_EQ(text.c_str()[text.length()], 0);
    text.append(text);
    text += text.c_str();
    EXPECT_EQ(text.length(), 64u);
    text.assign(text, 8, 5);
    EXPECT_EQ(bytes(text), "world");
    text.resize(7, u'.');
    text.to_upper(1, 2);
    EXPECT_EQ(bytes(text), "wORld..");
    EXPECT_TRUE(ustring(4, u'x').strip(ustring::both, u'x').empty());
    ustring moved(std::move(text));
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(bytes(moved), "wORld..");
}

TEST(Ustring, ChangeNeverSearchesWhatItPutIn) {
    ustring text("aXbXc");
    EXPECT_EQ(bytes(text.change("X", "XX")), "aXXbXXc");
    EXPECT_EQ(bytes(text.change("", "never")), "aXXbXXc");
}

TEST(Ustring, SearchesGiveThePositionOrAllOnes) {
    const ustring text("abcABCabc");
    EXPECT_EQ(text.find(u"ABC", 0, 3), 3u);
    EXPECT_EQ(text.find(u"ABC", 0, 3, 1), 0u);
    EXPECT_EQ(text.rfind(u"abc", ustring::npos, 3), 6u);
    EXPECT_EQ(text.find(u"", 2, 0), text.length());
    EXPECT_EQ(ustring().rfind(u"a", ustring::npos, 1), ustring::npos);
    EXPECT_EQ(text.find_first_not_of(u"abc", 0, 3), 3u);
    EXPECT_EQ(text.find_last_of(u"AB", ustring::npos, 2), 4u);
    EXPECT_EQ(text.find(u'z'), ustring::npos);
}

TEST(Ustring, LongPatternsAreFoundWhereShortOnesAre) {
    unsigned seed = 1;
    for (int round = 0; round < 300; ++round) {
        const std::string unit(1 + round % 5, 'a');
        std::string text, pattern;
        while (text.size() < 700)
            text += (seed = seed * 1103515245U + 12345U) >> 28 ? unit : "B";
        pattern = text.substr(seed % 500, 60 + seed % 90);
        text.erase(seed % 600, 1);
        const auto at = text.find(pattern);
        const ustring whole(text.c_str()), part(pattern.c_str());
        const auto wanted = at == std::string::npos ? ustring::npos : static_cast<unsigned>(at);
        EXPECT_EQ(whole.find(part), wanted) << pattern;
        ustring upper(part);
        upper.to_upper();
        EXPECT_LE(whole.find(upper.c_str(), 0, upper.length(), 1), wanted);
    }
    EXPECT_EQ(ustring(400000, u'a').find(ustring(200000, u'a') + ustring(u"b")), ustring::npos);
}

TEST(Ustring, ComparesByTheLengthsThatWereGiven) {
    const ustring a("Alpha"), b("alphabet");
    EXPECT_EQ(a.compare(b, 1), -3);
    EXPECT_EQ(a.compare(0, 5, b, 0, 5, 1), 0);
    EXPECT_NE(a.compare(b), 0);
    // Any other value than 1 does not fold case here.
    EXPECT_NE(a.compare(0, 5, b, 0, 5, 2), 0);
    EXPECT_FALSE(static_cast<const km::codable&>(a) == static_cast<const km::codable&>(b));
}

TEST(Ustring, PatternsAreOneForwardPass) {
    const struct {
        const char *text, *pattern;
        bool matches;
    } cases[] = {{"anything", "*.*", true}, {"a", "a*", true},    {"a.txt.txt", "*.txt", false},
                 {"a.txt", "*.txt", true},  {"abc", "a?c", true}, {"abc", "a.*", false},
                 {"[sec]", "[*]*", true},   {"", "*", true},      {"", "", true},
                 {"abc", "ab", false},      {"ab", "abc", false}, {"xyz", "**", true}};
    for (const auto& one : cases)
        EXPECT_EQ(ustring(one.text).matches_pattern(ustring(one.pattern)), one.matches)
            << one.text << " " << one.pattern;
    EXPECT_TRUE(ustring("ABC").matches_pattern(ustring("a*"), 1));
}

TEST(Ustring, HashIsTheOneThatStoredTablesKnow) {
    EXPECT_EQ(ustring().hash_code(), 0u);
    EXPECT_EQ(ustring("ab").hash_code(), (97u * 2) ^ 98u);
    // Long enough to shift the first characters out of 32 bits.
    EXPECT_EQ(ustring("com.ombrel").hash_code(), ustring("com.ombrel").hash_code());
    EXPECT_NE(ustring("ab").hash_code(), ustring("AB").hash_code());
}

TEST(Ustring, GetlineTakesEveryLineEnd) {
    FILE* file = file_with("one\ntwo\r\nthree\rfour\xFF\n\nlast");
    const char* expected[] = {"one", "two", "three", "four\xFF", "", "last"};
    ustring line;
    for (const char* text : expected) {
        ASSERT_TRUE(line.getline(file));
        EXPECT_EQ(bytes(line), text);
    }
    EXPECT_FALSE(line.getline(file));
    std::fclose(file);
}

TEST(Uxl, StrictCallsTellInvalidFromIncomplete) {
    char16_t out[2];
    EXPECT_EQ(km::uxl_mbtowc(0, out, "\xC3\xA9", 2), 2);
    EXPECT_EQ(out[0], u'é');
    EXPECT_EQ(km::uxl_mbtowc(0, out, "\xC3", 1), -2);
    EXPECT_EQ(km::uxl_mbtowc(0, out, "\xFF", 1), -1);
    EXPECT_EQ(km::uxl_mbtowc(0, out, "\xF0\x9F\x98\x80", 4), 4);
    char to[16];
    EXPECT_EQ(km::uxl_wctomb(0, to, out[0], out[1]), 4);
    EXPECT_EQ(std::string(to, 4), "\xF0\x9F\x98\x80");
    EXPECT_LT(km::uxl_wctomb(0, to, 0xD800), 1);
}

TEST(Uxl, ConversionLeavesASplitCharacterInTheInput) {
    const char input[] = "a\xE2\x82";
    char output[8];
    const char* in = input;
    char* out = output;
    size_t in_left = 3, out_left = sizeof output;
    EXPECT_EQ(km::uxl_from_utf8_r(0, &in, &in_left, &out, &out_left), 2);
    EXPECT_EQ(in_left, 2u);
    EXPECT_EQ(out_left, sizeof output - 1);
    out_left = 0;
    in = input;
    in_left = 1;
    EXPECT_EQ(km::uxl_to_utf8_r(0, &in, &in_left, &out, &out_left), 1);
}

TEST(NumberText, OnlyRadixTenHasASign) {
    char buffer[80];
    EXPECT_STREQ(km::itoa(-42, buffer, 10), "-42");
    EXPECT_STREQ(km::_ltoa(-1, buffer, 16), "ffffffff");
    EXPECT_STREQ(km::ultoa(35, buffer, 36), "z");
    EXPECT_STREQ(km::_ltoa(-9223372036854775807L - 1, buffer, 10), "-9223372036854775808");
}

TEST(Ustring, ItsBytesEndAtTheFirst0) {
    const std::string letters = "abcdefghijklm";
    for (unsigned length = 0; length <= 13; ++length)
        for (unsigned at = 0; at <= length; ++at) {
            ustring text(letters.substr(0, length).c_str());
            if (at < length)
                text.replace(at, 1, 1, u'\0');
            EXPECT_STREQ(text.mbcs_str(), letters.substr(0, at).c_str()) << length << " " << at;
        }
    // Units that a test of several at once might take for a 0.
    const char16_t odd[] = {0x0100, 0x8000, 0x0001, 0xFF00, 0x00FF, 0x8080};
    EXPECT_TRUE(ustring(ustring(odd, 6).mbcs_str()) == ustring(odd, 6));
}
