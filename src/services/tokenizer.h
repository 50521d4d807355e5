// tokenizer: lexer with a table of character kinds
#pragma once

#include "reader.h"

#include <memory>

namespace km {

// Cuts the characters of a reader into tokens by a table of character classes. Characters from 256
// up count as word characters.
class tokenizer {
  public:
    enum kind : int { t_none = -4, t_word = -3, t_number = -2, t_end = -1, t_eol = 10 };

    // Takes the reader over; it is closed and deleted with the tokenizer. The classes are those of
    // set_defaults.
    explicit tokenizer(reader* input);
    ~tokenizer();
    tokenizer(const tokenizer&) = delete;
    tokenizer& operator=(const tokenizer&) = delete;

    // Ranges are cut to 0..255. The word flag is added, the others replace the class.
    void set_word_chars(int low, int high);
    void set_whitespace_chars(int low, int high);
    void set_comment_char(int c);
    void set_quote_char(int c);
    // Takes every class away from one character.
    void set_plain_char(int c);
    // Digits become numeric, and '.' and '-' too unless `no_sign` is set.
    void parse_numbers(int no_sign = 0);
    // Words of letters, digits and 0xA0 to 0xFF, white space up to 0x20, quotes '"' and '\''.
    void set_defaults();
    // Takes every class away from all characters.
    void reset_syntax();

    // The kind of the next token: t_end, t_number (value in nval), t_word (text in sval), t_eol,
    // the quote character of a quoted text (in sval), or the character itself.
    int next_token();
    // The next next_token() gives the same token again.
    void push_back() { pushed_back_ = 1; }

    int ttype = t_none;
    ustring sval;
    double nval = 0;
    int line = 1;
    int lower_case = 0;
    int eol_is_significant = 0;
    int slash_slash_comments = 0;
    int slash_star_comments = 0;

  private:
    int take();
    int class_of(int c) const;
    bool skip_whitespace(int& c);
    int read_number(int c);
    int read_word(int c);
    int read_quoted(int c);
    void skip_line(int& c);
    bool skip_slash(int& c);
    void skip_block(int& c);
    void end_of_line(int& c);

    std::unique_ptr<reader> input_;
    int peek_ = -1;
    int started_ = 0;
    int pushed_back_ = 0;
    unsigned char classes_[256];
};

} // namespace km
