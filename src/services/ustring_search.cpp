// ustring_search: searches, comparison and patterns of ustring
// no format
// invariant: nothing here changes the text
#include "ustring.h"

#include "base/uxl.h"
#include "char_traits.h"

#include <algorithm>
#include <vector>

namespace km {

namespace {

bool same(char16_t a, char16_t b, int ignore_case) {
    return a == b || (ignore_case && uxl_towlower(a) == uxl_towlower(b));
}

bool same_text(const char16_t* a, const char16_t* b, unsigned n, int ignore_case) {
    return (ignore_case ? uxl_wcsnicmp(a, b, n) : uxl_wcsncmp(a, b, n)) == 0;
}

bool in_set(const char16_t* set, unsigned n, char16_t c, int ignore_case) {
    return ignore_case ? string_char_traits::find_ignore_case(set, n, c)
                       : string_char_traits::find(set, n, c);
}

// From this length on a pattern is searched without going back in the text: "aaa..." in "aaa..."
// would take the product of the lengths otherwise.
constexpr unsigned long_pattern = 64;

// borders[i]: length of the longest proper start of the pattern that ends at i too.
std::vector<unsigned> borders_of(const char16_t* s, unsigned n, int ignore_case) {
    std::vector<unsigned> borders(n);
    for (unsigned i = 1, k = 0; i < n; ++i) {
        while (k && !same(s[i], s[k], ignore_case))
            k = borders[k - 1];
        borders[i] = k += same(s[i], s[k], ignore_case);
    }
    return borders;
}

// Position of the pattern in text[pos, end), or npos.
unsigned find_long(const char16_t* text, unsigned pos, unsigned end, const char16_t* s, unsigned n,
                   int ignore_case) {
    const auto borders = borders_of(s, n, ignore_case);
    for (unsigned k = 0; pos < end; ++pos) {
        while (k && !same(text[pos], s[k], ignore_case))
            k = borders[k - 1];
        if (same(text[pos], s[k], ignore_case) && ++k == n)
            return pos + 1 - n;
    }
    return ustring::npos;
}

} // namespace

ustring::size_type ustring::find(const char16_t* s, size_type pos, size_type n,
                                 int ignore_case) const {
    // Only the terminator equals the first character of an empty pattern.
    if (n == 0)
        return pos <= length_ ? length_ : npos;
    if (n > length_)
        return npos;
    // Equality ends at a 0, which only the search that goes back knows.
    if (n >= long_pattern && !string_char_traits::find(s, n, u'\0'))
        return find_long(buffer_, pos, length_, s, n, ignore_case);
    for (; pos <= length_ - n; ++pos)
        if (same(buffer_[pos], s[0], ignore_case) && same_text(buffer_ + pos, s, n, ignore_case))
            return pos;
    return npos;
}

ustring::size_type ustring::find(const ustring& s, size_type pos) const {
    return find(s.buffer_, pos, s.length_, 0);
}

ustring::size_type ustring::find(char16_t c, size_type pos, int ignore_case) const {
    for (; pos < length_; ++pos)
        if (same(buffer_[pos], c, ignore_case))
            return pos;
    return npos;
}

ustring::size_type ustring::rfind(const char16_t* s, size_type pos, size_type n,
                                  int ignore_case) const {
    if (length_ == 0 || n > length_)
        return npos;
    for (pos = std::min(pos, length_ - n) + 1; pos-- > 0;)
        if ((n == 0 || same(buffer_[pos], s[0], ignore_case)) &&
            same_text(buffer_ + pos, s, n, ignore_case))
            return pos;
    return npos;
}

ustring::size_type ustring::rfind(const ustring& s, size_type pos) const {
    return rfind(s.buffer_, pos, s.length_, 0);
}

ustring::size_type ustring::rfind(char16_t c, size_type pos, int ignore_case) const {
    return rfind(&c, pos, 1, ignore_case);
}

ustring::size_type ustring::find_first_of(const char16_t* set, size_type pos, size_type n,
                                          int ignore_case) const {
    for (; pos < length_; ++pos)
        if (in_set(set, n, buffer_[pos], ignore_case))
            return pos;
    return npos;
}

ustring::size_type ustring::find_last_of(const char16_t* set, size_type pos, size_type n,
                                         int ignore_case) const {
    for (pos = length_ ? std::min(pos, length_ - 1) + 1 : 0; pos-- > 0;)
        if (in_set(set, n, buffer_[pos], ignore_case))
            return pos;
    return npos;
}

ustring::size_type ustring::find_first_not_of(const char16_t* set, size_type pos, size_type n,
                                              int ignore_case) const {
    for (; pos < length_; ++pos)
        if (!in_set(set, n, buffer_[pos], ignore_case))
            return pos;
    return npos;
}

ustring::size_type ustring::find_first_not_of(char16_t c, size_type pos, int ignore_case) const {
    return find_first_not_of(&c, pos, 1, ignore_case);
}

ustring::size_type ustring::find_last_not_of(const char16_t* set, size_type pos, size_type n,
                                             int ignore_case) const {
    for (pos = length_ ? std::min(pos, length_ - 1) + 1 : 0; pos-- > 0;)
        if (!in_set(set, n, buffer_[pos], ignore_case))
            return pos;
    return npos;
}

ustring::size_type ustring::find_last_not_of(char16_t c, size_type pos, int ignore_case) const {
    return find_last_not_of(&c, pos, 1, ignore_case);
}

int ustring::compare(size_type pos, size_type n, const char16_t* wide, size_type wlen,
                     int ignore_case) const {
    const size_type own = cut(pos, n), common = std::min(own, wlen);
    const int order = ignore_case == 1 ? uxl_wcsnicmp(buffer_ + pos, wide, common)
                                       : uxl_wcsncmp(buffer_ + pos, wide, common);
    return order ? order : static_cast<int>(own) - static_cast<int>(wlen);
}

int ustring::compare(size_type pos, size_type n, const ustring& other, size_type opos, size_type on,
                     int ignore_case) const {
    return compare(pos, n, other.buffer_, other.cut(opos, on), ignore_case);
}

int ustring::compare(const ustring& other, int ignore_case) const {
    return compare(0, npos, other, 0, npos, ignore_case);
}

bool ustring::matches_pattern(const ustring& pattern, int ignore_case) const {
    static const char16_t wild[] = u"*?";
    ustring p(pattern);
    if (p.length_ > 2 && p.find(u"*.*", p.length_ - 3, 3) != npos)
        p.eos(p.length_ - 2);
    if (p.length_ == 1 && p[0] == u'*')
        return true;
    size_type j = 0, k = 0;
    while (p[j] && (*this)[k]) {
        if (p[j] == u'?') {
            ++j, ++k;
        } else if (p[j] != u'*') {
            if (!same(p[j++], buffer_[k++], ignore_case))
                return false;
        } else {
            const size_type next = std::min(p.find_first_of(wild, j + 1, 2), p.length_);
            const size_type hit = find(p.buffer_ + j + 1, k, next - j - 1, ignore_case);
            if (hit == npos)
                return false;
            k = hit + (next - j - 1);
            j = next;
        }
    }
    if (!p[j] && !(*this)[k])
        return true;
    return p.length_ == j + 1 && p[j] == u'*';
}

} // namespace km
