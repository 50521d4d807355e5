// tokenizer: lexer with a table of character kinds
// no format
// invariant: peek_ is the character behind the token that was given last
#include "tokenizer.h"

#include <algorithm>
#include <cstring>

namespace km {

namespace {
enum character_class : unsigned char {
    whitespace = 1,
    numeric = 2,
    word = 4,
    quote = 8,
    comment = 16
};
}

tokenizer::tokenizer(reader* input) : input_(input) {
    std::memset(classes_, 0, sizeof classes_);
    set_defaults();
}

tokenizer::~tokenizer() { input_->close(); }

void tokenizer::set_word_chars(int low, int high) {
    for (int c = std::max(low, 0); c <= std::min(high, 255); ++c)
        classes_[c] |= word;
}

void tokenizer::set_whitespace_chars(int low, int high) {
    for (int c = std::max(low, 0); c <= std::min(high, 255); ++c)
        classes_[c] = whitespace;
}

void tokenizer::set_comment_char(int c) {
    if (c >= 0 && c < 256)
        classes_[c] = comment;
}

void tokenizer::set_quote_char(int c) {
    if (c >= 0 && c < 256)
        classes_[c] = quote;
}

void tokenizer::set_plain_char(int c) {
    if (c >= 0 && c < 256)
        classes_[c] = 0;
}

void tokenizer::parse_numbers(int no_sign) {
    for (int c = '0'; c <= '9'; ++c)
        classes_[c] |= numeric;
    if (no_sign)
        return;
    classes_[int{'.'}] |= numeric;
    classes_[int{'-'}] |= numeric;
}

void tokenizer::set_defaults() {
    set_word_chars('a', 'z');
    set_word_chars('A', 'Z');
    set_word_chars('0', '9');
    set_word_chars(0xA0, 0xFF);
    set_whitespace_chars(0, 0x20);
    set_quote_char('"');
    set_quote_char('\'');
}

void tokenizer::reset_syntax() { std::memset(classes_, 0, sizeof classes_); }

int tokenizer::take() { return input_->read(); }

int tokenizer::class_of(int c) const {
    return c < 0 ? 0 : c < 256 ? classes_[c] : static_cast<int>(word);
}

// c is CR or LF: counts the line and goes past it.
void tokenizer::end_of_line(int& c) {
    ++line;
    const bool was_cr = c == '\r';
    c = take();
    if (was_cr && c == '\n')
        c = take();
}

// True: an end of line that matters was met; c is the character behind it.
bool tokenizer::skip_whitespace(int& c) {
    while (class_of(c) & whitespace) {
        if (c != '\r' && c != '\n') {
            c = take();
            continue;
        }
        end_of_line(c);
        if (eol_is_significant)
            return true;
    }
    return false;
}

int tokenizer::read_number(int c) {
    bool negative = false;
    if (c == '-') {
        c = take();
        if (c != '.' && (c < '0' || c > '9')) {
            peek_ = c;
            return ttype = '-';
        }
        negative = true;
    }
    double value = 0, scale = 1;
    bool fraction = false;
    for (;; c = take()) {
        if (c == '.' && !fraction && (class_of('.') & numeric)) {
            fraction = true;
        } else if (c >= '0' && c <= '9') {
            if (fraction && scale > 1e300)
                continue; // never infinity by infinity
            value = value * 10 + (c - '0');
            if (fraction)
                scale *= 10;
        } else {
            break;
        }
    }
    peek_ = c;
    nval = (negative ? -value : value) / scale;
    return ttype = t_number;
}

int tokenizer::read_word(int c) {
    for (; class_of(c) & (word | numeric); c = take())
        sval += static_cast<char16_t>(c);
    peek_ = c;
    if (lower_case)
        sval.to_lower();
    return ttype = t_word;
}

int tokenizer::read_quoted(int c) {
    const int mark = c;
    for (c = take(); c >= 0 && c != mark; c = take()) {
        if (c == '\r')
            ++line;
        sval += static_cast<char16_t>(c);
    }
    peek_ = c < 0 ? c : take();
    return ttype = mark;
}

void tokenizer::skip_line(int& c) {
    while (c >= 0 && c != '\r' && c != '\n')
        c = take();
}

void tokenizer::skip_block(int& c) {
    int before = 0;
    for (c = take(); c >= 0; c = take()) {
        if (before == '*' && c == '/') {
            c = take();
            return;
        }
        if (c == '\n' || (before == '\r' && c != '\n'))
            ++line;
        before = c;
    }
}

// c is behind a '/'. True: a comment was skipped, c stands behind it.
bool tokenizer::skip_slash(int& c) {
    if (c == '*' && slash_star_comments) {
        skip_block(c);
        return true;
    }
    if (c == '/' && slash_slash_comments) {
        skip_line(c);
        return true;
    }
    return false;
}

int tokenizer::next_token() {
    if (pushed_back_) {
        pushed_back_ = 0;
        return ttype;
    }
    sval.eos(0);
    int c = started_ ? peek_ : take();
    started_ = 1;
    for (;;) {
        if (skip_whitespace(c)) {
            peek_ = c;
            return ttype = t_eol;
        }
        if (c < 0) {
            peek_ = c;
            return ttype = t_end;
        }
        const int kind = class_of(c);
        if (kind & numeric)
            return read_number(c);
        if (kind & word)
            return read_word(c);
        if (kind & quote)
            return read_quoted(c);
        if (kind & comment) {
            skip_line(c);
            continue;
        }
        const int plain = c;
        c = take();
        if (plain == '/' && skip_slash(c))
            continue;
        peek_ = c;
        return ttype = plain;
    }
}

} // namespace km
