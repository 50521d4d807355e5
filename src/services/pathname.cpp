// pathname: a path in its normal form
// format: docs/formats/coded-object.md
// invariant: the text went through fix_path, except for what append() put behind it
#include "pathname.h"

namespace km {

void convert_separators(char16_t* text) {
    bool inside = false;
    for (; *text; ++text) {
        if (text[0] == u'$' && text[1] == u'(') {
            inside = true;
            ++text;
        } else if (*text == u')') {
            inside = false;
        } else if (*text == u'\\' && !inside) {
            *text = u'/';
        }
    }
}

void fix_path(ustring& text) {
    convert_separators(text.data());
    text.strip();
    const auto n = text.length();
    if (n == 0 || (n <= 2 && text.find_first_not_of(u'/') == ustring::npos) ||
        (n >= 2 && text[n - 2] == u':' && text[n - 1] == u'/'))
        return;
    text.strip(ustring::trailing, u'/');
    if (!text.empty() && text[text.length() - 1] == u':')
        text += u'/';
}

pathname::pathname(const ustring& text) : text_(text) { fix_path(text_); }

pathname::pathname(const char* text) : text_(text) { fix_path(text_); }

pathname& pathname::operator=(const ustring& text) {
    text_ = text;
    fix_path(text_);
    return *this;
}

pathname& pathname::append(const ustring& s, int trim) {
    ustring more(s);
    if (trim)
        more.strip();
    if (more.empty())
        return *this;
    convert_separators(more.data());
    if (!text_.empty()) {
        const bool ends = text_[text_.length() - 1] == u'/', starts = more[0] == u'/';
        if (!ends && !starts)
            text_ += u'/';
        else if (ends && starts)
            text_.eos(text_.length() - 1);
    }
    text_ += more;
    return *this;
}

pathname& pathname::operator--() {
    if (text_.empty() || is_root())
        return *this;
    const auto p = text_.rfind(u'/');
    if (p == ustring::npos)
        text_.eos(0);
    else
        text_.eos(p == 0 || (p == 1 && text_[0] == u'/') ? p + 1 : p);
    return *this;
}

pathname pathname::operator--(int) {
    pathname old(*this);
    --*this;
    return old;
}

pathname pathname::get_parent() const {
    pathname parent(*this);
    --parent;
    return parent;
}

ustring pathname::get_file() const {
    const auto p = text_.rfind(u'/');
    return p == ustring::npos ? text_ : text_.substr(p + 1);
}

ustring pathname::get_root() const {
    const auto p = text_.find(u'/');
    if (p == ustring::npos)
        return text_;
    return p == 0 ? get_volume() : text_.substr(0, p);
}

ustring pathname::get_volume() const { return ustring(u"/"); }

bool pathname::is_root() const { return text_.length() == 1 && text_[0] == u'/'; }

bool pathname::contains_wildcards() const {
    return text_.find_first_of(u"*?", 0, 2) != ustring::npos;
}

ustring pathname::get_extension() const {
    const auto p = text_.find_last_of(u"/.", ustring::npos, 2);
    return p != ustring::npos && text_[p] == u'.' ? text_.substr(p) : ustring();
}

void pathname::remove_extension() {
    const auto p = text_.find_last_of(u"/.", ustring::npos, 2);
    if (p != ustring::npos && text_[p] == u'.')
        text_.eos(p);
}

void pathname::set_extension(const ustring& extension) {
    ustring bare(extension);
    bare.strip(ustring::leading, u'.');
    if (bare.empty())
        return;
    text_ += u'.';
    text_ += bare;
}

void pathname::change_extension(const ustring& extension) {
    ustring bare(extension);
    remove_extension();
    bare.strip(ustring::leading, u'.');
    text_ += u'.';
    text_ += bare;
}

bool pathname::operator==(const codable& other) const {
    const auto* path = dynamic_cast<const pathname*>(&other);
    return path && *this == *path;
}

} // namespace km
