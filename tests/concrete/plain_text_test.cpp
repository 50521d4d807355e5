// Numbers and words in texts of packages.
#include "plain_text.h"

#include <gtest/gtest.h>

using km::says;
using km::take_number;
using km::ustring;

TEST(PlainText, NumbersEndWhereTheyEndAndNeverOverflow) {
    const struct {
        const char16_t* text;
        bool taken;
        unsigned long value;
        const char16_t* rest;
    } cases[] = {
        {u"0", true, 0, u""},
        {u"17.000000001", true, 17, u".000000001"},
        {u"9999999999999999999", true, 9999999999999999999U, u""},
        {u"10000000000000000000", false, 0, nullptr},
        {u"", false, 0, nullptr},
        {u"-1", false, 0, nullptr},
        {u" 1", false, 0, nullptr},
        {u"\x0661", false, 0, nullptr}, // a digit of another script
    };
    for (const auto& one : cases) {
        const char16_t* at = one.text;
        unsigned long value = 0;
        EXPECT_EQ(take_number(at, value), one.taken) << ustring(one.text).mbcs_str();
        if (one.taken) {
            EXPECT_EQ(value, one.value);
            EXPECT_TRUE(ustring(at) == ustring(one.rest));
        }
    }
}

TEST(PlainText, WordsAreComparedWhole) {
    EXPECT_TRUE(says(u"rollback", u"rollback"));
    EXPECT_FALSE(says(u"rollback_cleanup", u"rollback"));
    EXPECT_FALSE(says(u"roll", u"rollback"));
    EXPECT_TRUE(says(ustring(), u""));
}
