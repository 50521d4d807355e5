// number_text: numbers to text in a radix
// no format
// invariant: at most 65 digits and signs, and a terminator, are written
#include "number_text.h"

#include <algorithm>
#include <cstdint>

namespace km {

char* xtoa(unsigned long value, char* buffer, int radix, int negative) {
    char* at = buffer;
    if (negative)
        *at++ = '-';
    char* first = at;
    do {
        const unsigned long digit = value % static_cast<unsigned long>(radix);
        value /= static_cast<unsigned long>(radix);
        *at++ = static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10);
    } while (value);
    *at = 0;
    std::reverse(first, at);
    return buffer;
}

char* itoa(int value, char* buffer, int radix) { return _ltoa(value, buffer, radix); }

char* _ltoa(long value, char* buffer, int radix) {
    if (radix == 10 && value < 0)
        return xtoa(0UL - static_cast<unsigned long>(value), buffer, radix, 1);
    if (radix != 10)
        return xtoa(static_cast<std::uint32_t>(value), buffer, radix, 0);
    return xtoa(static_cast<unsigned long>(value), buffer, radix, 0);
}

char* ultoa(unsigned long value, char* buffer, int radix) { return xtoa(value, buffer, radix, 0); }

} // namespace km
