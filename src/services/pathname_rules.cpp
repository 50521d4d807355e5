// pathname_rules: absolute, relative, common part and long format of paths
// no format
// invariant: no rule here asks the file system but get_absolute_path, for the current directory
#include "pathname.h"

#include "trclog.h"

#include <climits>
#include <cstring>
#include <unistd.h>

namespace km {

pathname pathname::get_absolute_path() const {
    if (is_absolute())
        return *this;
    char here[PATH_MAX];
    if (!::getcwd(here, sizeof here)) {
        KM_TRACE(trace_fatal, "common", "Unable to get current working directory");
        return *this;
    }
    pathname whole(here);
    whole += text_;
    return whole;
}

void pathname::make_absolute(const pathname& base) {
    ustring s;
    if (text_.empty() || (text_[0] != u'/' && text_[1] != u':')) {
        s = base.text_;
        s += u'/';
    }
    s += text_;
    pathname result;
    for (ustring::size_type pos = 0, next; pos < s.length(); pos = next) {
        // A component stands with the separator in front of it; the first may have none.
        next = s.find(u'/', pos + 1);
        if (next == ustring::npos)
            next = s.length();
        const auto len = next - pos;
        if ((len == 2 && s[pos + 1] == u'.') || (len == 1 && s[pos] == u'/' && s[pos + 1] == u'/'))
            continue;
        if (len == 3 && s[pos + 1] == u'.' && s[pos + 2] == u'.')
            --result;
        else
            result += s.substr(pos, len);
    }
    text_ = result.text_;
}

void pathname::make_relative() {
    text_.strip(ustring::both, u'/');
    for (char16_t* c = text_.data(); *c; ++c)
        if (*c == u':')
            *c = u'_';
}

bool pathname::is_subpath_of(const pathname& other) const {
    const auto n = other.text_.length();
    if (n > text_.length() || text_.compare(0, n, other.text_, 0, n, 0) != 0)
        return false;
    if (n && other.text_[n - 1] == u'/')
        return true;
    return text_[n] == u'/' || text_[n] == 0;
}

void pathname::remove_common_part(const pathname* first, const pathname* second) {
    if (!first)
        return;
    const ustring a = first->text_;
    const ustring b = second ? second->text_ : ustring();
    auto begins = [](const ustring& s, const ustring& head) {
        return s.length() >= head.length() &&
               s.compare(0, head.length(), head, 0, head.length(), 0) == 0;
    };
    ustring::size_type drop = a.length();
    if (!b.empty() && begins(text_, b))
        drop = !a.empty() && begins(a, b) ? a.length() : b.length();
    if (drop)
        *this = drop < text_.length() ? text_.substr(drop) : ustring();
}

bool pathname::is_long_format() const {
    std::string text = text_.mbcs_str();
    const auto colon = text.find(':');
    if (colon != std::string::npos)
        text.erase(0, colon + 1);
    size_t start = 0;
    for (size_t end; (end = text.find('/', start)) != std::string::npos; start = end + 1)
        if (end - start > 8)
            return true;
    const size_t size = text.size() - start;
    const auto dot = text.find('.', start);
    if (dot == std::string::npos)
        return size > 8;
    return dot - start > 8 || text.size() - dot - 1 > 3;
}

} // namespace km
