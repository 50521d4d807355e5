// text_bytes: the bytes of a text file, edited by lines
//
// Nothing but the edited line changes: the ends of lines (LF or CR LF), a missing last one, a mark
// of UTF-8 in front and bytes that are no characters stay. A line that is added has the end of its
// neighbour; taking it out again gives the bytes of before.
#pragma once

#include "ustring.h"

#include <cstdint>
#include <string>

namespace km {

class text_bytes {
  public:
    // A line: [begin, end) without its end, the next one begins at `next`.
    struct line {
        size_t begin = 0, end = 0, next = 0;
    };

    // Where a line stood: its number from 1 (0: unknown), and the lines around it, carried.
    struct line_place {
        std::int32_t number = 0;
        ustring before, behind;
    };

    text_bytes() = default;
    explicit text_bytes(std::string bytes);

    const std::string& bytes() const { return all_; }
    // Behind the mark of UTF-8.
    size_t start() const { return start_; }
    bool empty() const { return all_.size() <= start_; }
    // The line that begins at `at`; false at the end of the text.
    bool at(size_t at, line& out) const;
    std::string text(const line& of) const { return all_.substr(of.begin, of.end - of.begin); }
    // The line in front of the one that begins at `at`; false for the first.
    bool before(size_t at, line& out) const;

    // The first, or the last, line that is `text`, byte for byte.
    bool find(const std::string& text, bool last, line& out) const;
    // The same by a pattern of '*' and '?'; blanks at both ends of a line do not count.
    bool find_like(const ustring& pattern, bool last, line& out) const;

    line_place place_of(const line& of) const;
    // Where a line that stood there goes back to, from `from` to `to`: between the neighbours of
    // before; else behind or in front of the one that is still there; else by number.
    size_t way_back(const line_place& stood, size_t from, size_t to) const;

    // Puts a line in front of the one that begins at `at`, or behind the last one.
    void insert(size_t at, const std::string& text);
    void remove(const line& of);
    void replace(const line& of, const std::string& text);
    // Changes a part of a line; [begin, end) must not hold an end of line.
    void replace_part(size_t begin, size_t end, const std::string& text);

  private:
    std::string end_of_lines_at(size_t at) const;
    template <class Test> bool search(bool last, line& out, const Test& test) const;

    std::string all_;
    size_t start_ = 0;
};

// Blanks and tabs off both ends of [begin, end) of `all`.
void trim(const std::string& all, size_t& begin, size_t& end);
std::string trimmed(const std::string& text);

// Foreign bytes as a text that can be coded: '%', '$' and control characters as '%' and two
// hexadecimal digits, so that no reader takes a part for a variable.
ustring carried(const std::string& bytes);
std::string uncarried(const ustring& text);

} // namespace km
