// text_line: one line of an edited text file
// no format of its own
// invariant: the checksum is that of the text
#include "text_line.h"

namespace km {

void strip_blanks(ustring& text) {
    static const char16_t blanks[] = u" \t";
    const auto first = text.find_first_not_of(blanks, 0, 2);
    if (first == ustring::npos) {
        text.eos(0);
        return;
    }
    text.eos(text.find_last_not_of(blanks, ustring::npos, 2) + 1);
    text.remove(0, first);
}

void text_line::set_text(const ustring& text) {
    text_ = text;
    checksum_ = 0;
    for (unsigned i = 0; i < text_.length(); ++i)
        checksum_ += text_[i];
}

ustring text_line::get_command_name() const {
    const auto at = text_.find(u'=');
    if (at == ustring::npos)
        return ustring();
    ustring name = text_.substr(0, at);
    strip_blanks(name);
    return name;
}

ustring::size_type text_line::get_command_text_position(const ustring& name) const {
    const auto n = name.length();
    if (text_.length() < n || text_.compare(0, n, name, 0, n, 0) != 0)
        return ustring::npos;
    auto is_blank = [this](unsigned at) { return text_[at] == u' ' || text_[at] == u'\t'; };
    auto at = n;
    while (is_blank(at))
        ++at;
    if (text_[at] != u'=')
        return ustring::npos;
    for (++at; is_blank(at); ++at) {
    }
    return at;
}

ustring text_line::get_command_text(const ustring& name) const {
    const auto at = get_command_text_position(name);
    return at == ustring::npos ? ustring() : text_.substr(at);
}

ustring text_line::get_command_key(const ustring& name) const {
    const auto at = get_command_text_position(name);
    return at == ustring::npos ? ustring() : text_.substr(0, at);
}

bool text_line::is_command(const ustring& name) const {
    return get_command_text_position(name) != ustring::npos;
}

bool text_line::is_command_with_key(const ustring& name, const ustring& key) const {
    return is_command(name) && get_command_text(name).find(key) != ustring::npos;
}

const text_line& text_line::past_end() {
    static const text_line line = [] {
        text_line past;
        past.checksum_ = ~0U;
        return past;
    }();
    return line;
}

} // namespace km
