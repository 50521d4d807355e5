// package_version: well-formed versions, "name^version" texts, order of versions
// no format
// invariant: an order never depends on the locale
#include "package_version.h"

#include "tokenizer.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

namespace km {

namespace {

constexpr size_t longest_version = 64; // bytes

std::unique_ptr<tokenizer> parts_of(const ustring& version) {
    auto parts = std::make_unique<tokenizer>(new string_reader(version));
    parts->set_word_chars(0x21, 0xFF);
    parts->parse_numbers(1);
    parts->set_plain_char('.');
    return parts;
}

// A date with a time in it does not fit the result.
int difference(double a, double b) {
    constexpr double most = std::numeric_limits<int>::max();
    const double rounded_a = std::round(a), rounded_b = std::round(b);
    if (rounded_a == rounded_b)
        return 0;
    return static_cast<int>(std::fmax(-most, std::fmin(most, rounded_a - rounded_b)));
}

} // namespace

int sp_check_version(const ustring& version) {
    static const char16_t forbidden[] = u"*?!, ;:^'\"";
    if (version.empty() || version.find(u'\0') != ustring::npos ||
        std::strlen(version.mbcs_str()) > longest_version)
        return 0;
    if (version[0] == u'.' || version[version.length() - 1] == u'.' ||
        version.matches_pattern(u"*..*"))
        return 0;
    return version.find_first_of(forbidden, 0, std::size(forbidden) - 1) == ustring::npos;
}

char sp_split_name(const ustring& text, ustring& name, ustring& version) {
    const ustring whole(text); // `name` or `version` may be the text itself
    for (const char delimiter : {'^', '.'}) {
        const auto at = whole.find(static_cast<char16_t>(delimiter));
        if (at == ustring::npos)
            continue;
        name = whole.substr(0, at);
        version = whole.substr(at + 1);
        return delimiter;
    }
    name = whole;
    version = ustring();
    return 0;
}

int compare_versions_znp(const ustring& a, const ustring& b) {
    constexpr int end = tokenizer::t_end, number = tokenizer::t_number;
    const auto left = parts_of(a), right = parts_of(b);
    for (;;) {
        const int l = left->next_token(), r = right->next_token();
        if (l == end && r == end)
            return 0;
        if (l == end || (l == '.' && r != '.' && r != end))
            return -1;
        if (r == end || (r == '.' && l != '.'))
            return 1;
        const int order = l == '.'                     ? 0
                          : l == number && r == number ? difference(left->nval, right->nval)
                                                       : left->sval.compare(right->sval);
        if (order)
            return order;
    }
}

int compare_versions_znp(const void* a, const void* b) {
    return compare_versions_znp(ustring(*static_cast<const char* const*>(a)),
                                ustring(*static_cast<const char* const*>(b)));
}

} // namespace km
