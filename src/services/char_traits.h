// char_traits: searches and fills over 16-bit characters
#pragma once

#include "base/uxl.h"

#include <cstddef>

namespace km {

struct string_char_traits {
    // First of the `n` characters of `set` that equals `c`, or null.
    static const char16_t* find(const char16_t* set, size_t n, char16_t c) {
        for (size_t i = 0; i < n; ++i)
            if (set[i] == c)
                return set + i;
        return nullptr;
    }
    static const char16_t* find_ignore_case(const char16_t* set, size_t n, char16_t c) {
        c = uxl_towlower(c);
        for (size_t i = 0; i < n; ++i)
            if (uxl_towlower(set[i]) == c)
                return set + i;
        return nullptr;
    }
    // Fills `n` characters and returns `dest`.
    static char16_t* assign(char16_t* dest, size_t n, char16_t c) {
        for (size_t i = 0; i < n; ++i)
            dest[i] = c;
        return dest;
    }
};

} // namespace km
