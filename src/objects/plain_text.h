// plain_text: texts of packages, read where they stand
//
// For what is asked of every object of a package many times: no text is copied or converted.
#pragma once

#include "ustring.h"

#include <string_view>

namespace km {

inline bool says(const ustring& text, std::u16string_view words) {
    return std::u16string_view(text.c_str(), text.length()) == words;
}

// Takes the digits at `at`, which then stands behind them. False: there is none, or there are more
// than surely fit.
inline bool take_number(const char16_t*& at, unsigned long& value) {
    constexpr int most = 19;
    value = 0;
    int taken = 0;
    for (; *at >= u'0' && *at <= u'9' && taken < most; ++at, ++taken)
        value = value * 10 + static_cast<unsigned long>(*at - u'0');
    return taken > 0 && (*at < u'0' || *at > u'9');
}

} // namespace km
