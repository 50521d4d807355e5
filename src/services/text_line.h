// text_line: one line of an edited text file
#pragma once

#include "ustring.h"

namespace km {

// A line and the plain 32-bit sum of its characters. A line of the form name = text is a command.
class text_line : public uncoded<codable> {
  public:
    text_line() = default;
    explicit text_line(const ustring& text) { set_text(text); }
    codable* clone() const override { return new text_line(*this); }

    const ustring& get_text() const { return text_; }
    void set_text(const ustring& text);
    std::uint32_t checksum() const { return checksum_; }

    // What stands in front of the first '=', without blanks and tabs at its ends.
    ustring get_command_name() const;
    // Where the text of the command `name` starts, npos if the line is not that command. The line
    // must begin with the name, case kept.
    ustring::size_type get_command_text_position(const ustring& name) const;
    ustring get_command_text(const ustring& name) const;
    // The line up to that position.
    ustring get_command_key(const ustring& name) const;
    bool is_command(const ustring& name) const;
    bool is_command_with_key(const ustring& name, const ustring& key) const;
    bool has_more_tokens(const ustring& name) const { return !get_command_text(name).empty(); }

    // What indexing past the end gives: empty, with a checksum of all ones.
    static const text_line& past_end();

  private:
    ustring text_;
    std::uint32_t checksum_ = 0;
};

// Strips blanks and tabs, mixed, from both ends.
void strip_blanks(ustring& text);

} // namespace km
