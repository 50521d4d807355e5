// The lexer.
#include "tokenizer.h"

#include <gtest/gtest.h>
#include <string>

using km::tokenizer;
using km::ustring;

namespace {

tokenizer* over(const char* text) { return new tokenizer(new km::string_reader(ustring(text))); }

// The kinds and texts of all tokens, as one text.
std::string all(tokenizer& words) {
    std::string out;
    for (int kind; (kind = words.next_token()) != tokenizer::t_end;) {
        if (kind == tokenizer::t_word)
            out += std::string("w:") + words.sval.mbcs_str();
        else if (kind == tokenizer::t_number)
            out += "n:" + std::to_string(words.nval);
        else if (kind == '"' || kind == '\'')
            out += std::string("q:") + words.sval.mbcs_str();
        else if (kind == tokenizer::t_eol)
            out += "eol";
        else
            out += static_cast<char>(kind);
        out += ' ';
    }
    return out;
}

} // namespace

TEST(Tokenizer, DefaultsKnowWordsAndQuotes) {
    std::unique_ptr<tokenizer> words(over("key = \"a 'b'\" x1(y)\n'unclosed"));
    EXPECT_EQ(all(*words), "w:key = q:a 'b' w:x1 ( w:y ) q:unclosed ");
    EXPECT_EQ(words->line, 2);
}

TEST(Tokenizer, AQuotedTextGoesOverLinesAndACarriageReturnCounts) {
    std::unique_ptr<tokenizer> words(over("'a\nb' 'c\r\nd' e"));
    EXPECT_EQ(all(*words), "q:a\nb q:c\r\nd w:e ");
    EXPECT_EQ(words->line, 2);
}

TEST(Tokenizer, ANumberOfAnyLengthIsANumber) {
    const std::string ones(400, '1');
    std::unique_ptr<tokenizer> words(over((ones + "." + ones).c_str()));
    words->parse_numbers();
    EXPECT_EQ(words->next_token(), tokenizer::t_number);
    EXPECT_GT(words->nval, 1e300); // not NaN
}

TEST(Tokenizer, NumbersNeedToBeAskedFor) {
    std::unique_ptr<tokenizer> words(over("12 -3.5 - 1.2.3 -x"));
    words->parse_numbers();
    EXPECT_EQ(all(*words), "n:12.000000 n:-3.500000 - n:1.200000 n:0.300000 - w:x ");
    std::unique_ptr<tokenizer> plain(over("12 ab"));
    EXPECT_EQ(all(*plain), "w:12 w:ab ");
}

TEST(Tokenizer, LinesAndComments) {
    std::unique_ptr<tokenizer> words(over("a // c\r\nb /* x\ny */ c # rest\nd / e"));
    words->slash_slash_comments = words->slash_star_comments = words->eol_is_significant = 1;
    words->set_comment_char('#');
    EXPECT_EQ(all(*words), "w:a eol w:b w:c eol w:d / w:e ");
    EXPECT_EQ(words->line, 4);
}

TEST(Tokenizer, ATokenCanBePushedBack) {
    std::unique_ptr<tokenizer> words(over("One two"));
    words->lower_case = 1;
    EXPECT_EQ(words->next_token(), tokenizer::t_word);
    words->push_back();
    EXPECT_EQ(words->next_token(), tokenizer::t_word);
    EXPECT_EQ(words->sval, ustring("one"));
    EXPECT_EQ(words->next_token(), tokenizer::t_word);
    EXPECT_EQ(words->next_token(), tokenizer::t_end);
    EXPECT_EQ(words->next_token(), tokenizer::t_end);
}

TEST(Tokenizer, AnEmptySyntaxGivesSingleCharacters) {
    std::unique_ptr<tokenizer> words(over("/bin:/usr bin"));
    words->reset_syntax();
    words->set_word_chars(0x20, 0xFF);
    words->set_whitespace_chars(':', ':');
    EXPECT_EQ(all(*words), "w:/bin w:/usr bin ");
}
