// definition_lexer: words and marks of a text definition
//
// A word holds no blank, no control character and none of " ' # { } =. A text in double quotes
// holds anything but a line feed, with the escapes \\ \" \n \t \r \xHH; one in single quotes holds
// its characters as they stand. '#' outside of quotes begins a comment to the end of the line.
#pragma once

#include "definition_problems.h"

#include <utility>
#include <vector>

namespace km {

struct definition_token {
    enum kind { word, quoted, open, close, equals, end };
    kind what = end;
    std::string text; // of a word or a quoted text, as UTF-8
    text_place place;

    bool is_value() const { return what == word || what == quoted; }
    // For messages.
    std::string shown() const;
};

// A comment "lint: allow NAME, NAME".
struct definition_comment {
    text_place place;
    bool is_alone = false; // nothing stands in front of it on its line
    std::vector<std::string> allowed;
};

class definition_lexer {
  public:
    static constexpr size_t longest_value = 1 << 20;

    // Both are lent.
    definition_lexer(const std::string& text, definition_problems& problems)
        : text_(text), problems_(problems) {}
    definition_token next();
    // The next next() gives it again.
    void unread(const definition_token& token);
    // Passes over the rest of the line.
    void skip_line();
    // Those that were passed over.
    std::vector<definition_comment> take_comments() { return std::move(comments_); }

  private:
    void advance();
    void skip_blanks();
    void read_comment();
    bool at_end() const { return at_ >= text_.size(); }
    char here() const { return text_[at_]; }
    text_place place() const { return {line_, column_}; }
    template <class Ends> void take_while_not(std::string& into, Ends ends);
    void read_word(definition_token& token);
    void read_quoted(definition_token& token, char quote);
    void read_escape(std::string& into);
    void check_length(const definition_token& token);

    const std::string& text_;
    definition_problems& problems_;
    size_t at_ = 0;
    int line_ = 1;
    int column_ = 1;
    definition_token unread_;
    bool has_unread_ = false;
    std::vector<definition_comment> comments_;
};

} // namespace km
