// definition_lexer: words and marks of a text definition
// format: docs/DEFINITIONS.md
// invariant: every call takes at least one character, or tells the end
#include "definition_lexer.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>

namespace km {

namespace {
bool ends_word(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value <= ' ' || value == 0x7F || std::strchr("\"'#{}=", byte);
}

int hex_value(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(digit)));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}
} // namespace

std::string definition_token::shown() const {
    switch (what) {
    case word:
    case quoted:
        return "'" + text + "'";
    case open:
        return "'{'";
    case close:
        return "'}'";
    case equals:
        return "'='";
    default:
        return "the end of the file";
    }
}

void definition_lexer::unread(const definition_token& token) {
    unread_ = token;
    has_unread_ = true;
}

void definition_lexer::advance() {
    const char byte = text_[at_++];
    if (byte == '\n') {
        ++line_;
        column_ = 1;
    } else if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) {
        ++column_;
    }
    // The bytes behind a character's first one belong to its column.
    while (!at_end() && (static_cast<unsigned char>(here()) & 0xC0) == 0x80)
        ++at_;
}

void definition_lexer::skip_line() {
    while (!at_end() && here() != '\n')
        advance();
}

// Of all comments those count that speak to lint.
void definition_lexer::read_comment() {
    constexpr size_t most = 1000;
    const size_t from = at_;
    definition_comment comment;
    comment.place = place();
    skip_line();
    const size_t line = from ? text_.rfind('\n', from - 1) + 1 : 0;
    comment.is_alone = text_.find_first_not_of(" \t", line) == from;
    std::string words = text_.substr(from + 1, std::min(at_ - from - 1, most));
    std::replace(words.begin(), words.end(), ',', ' ');
    std::istringstream all(words);
    std::string word;
    if (!(all >> word) || word != "lint:" || !(all >> word) || word != "allow")
        return;
    while (all >> word)
        comment.allowed.push_back(word);
    if (comments_.size() < most)
        comments_.push_back(std::move(comment));
}

void definition_lexer::skip_blanks() {
    while (!at_end()) {
        if (here() == '#')
            read_comment();
        else if (std::strchr(" \t\r\n", here()) && here())
            advance();
        else
            return;
    }
}

definition_token definition_lexer::next() {
    if (has_unread_) {
        has_unread_ = false;
        return unread_;
    }
    for (;;) {
        skip_blanks();
        definition_token token;
        token.place = place();
        if (at_end())
            return token;
        const char first = here();
        if (first == '"' || first == '\'') {
            read_quoted(token, first);
            return token;
        }
        if (std::strchr("{}=", first) && first) {
            token.what = first == '{'   ? definition_token::open
                         : first == '}' ? definition_token::close
                                        : definition_token::equals;
            advance();
            return token;
        }
        if (!ends_word(first)) {
            read_word(token);
            return token;
        }
        problems_.add(im_control, token.place, {std::to_string(static_cast<unsigned char>(first))});
        advance();
    }
}

// Characters of one line, to the next one that `ends` or to the end.
template <class Ends> void definition_lexer::take_while_not(std::string& into, Ends ends) {
    const size_t from = at_;
    while (!at_end() && !ends(here())) {
        column_ += (static_cast<unsigned char>(here()) & 0xC0) != 0x80;
        ++at_;
    }
    into.append(text_, from, at_ - from);
}

void definition_lexer::read_word(definition_token& token) {
    token.what = definition_token::word;
    take_while_not(token.text, ends_word);
    check_length(token);
}

void definition_lexer::read_quoted(definition_token& token, char quote) {
    token.what = definition_token::quoted;
    advance();
    const auto ends = [quote](char byte) {
        return byte == quote || byte == '\n' || (byte == '\\' && quote == '"');
    };
    for (take_while_not(token.text, ends); !at_end() && here() == '\\' && quote == '"';
         take_while_not(token.text, ends))
        read_escape(token.text);
    if (at_end() || here() == '\n')
        problems_.add(im_unclosed_quote, token.place);
    else
        advance();
    if (valid_utf8(token.text) != token.text.size() || token.text.find('\0') != std::string::npos) {
        problems_.add(im_encoding, token.place);
        token.text.clear();
    }
    check_length(token);
}

void definition_lexer::read_escape(std::string& into) {
    const text_place where = place();
    advance();
    if (at_end() || here() == '\n')
        return;
    const size_t from = at_;
    const char letter = here();
    advance();
    if (letter == 'x' && at_ + 1 < text_.size() && hex_value(text_[at_]) >= 0 &&
        hex_value(text_[at_ + 1]) >= 0) {
        into += static_cast<char>(hex_value(text_[at_]) * 16 + hex_value(text_[at_ + 1]));
        advance();
        advance();
        return;
    }
    static const std::string from_letters = "\\\"ntr", to = "\\\"\n\t\r";
    const size_t known = from_letters.find(letter);
    if (known == std::string::npos)
        problems_.add(im_escape, where, {text_.substr(from, at_ - from)});
    else
        into += to[known];
}

void definition_lexer::check_length(const definition_token& token) {
    if (token.text.size() > longest_value)
        problems_.add(im_value_too_long, token.place, {std::to_string(longest_value)});
}

} // namespace km
