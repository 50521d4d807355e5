// base/uxl: 16-bit text and code pages, over ICU
// no format
// invariant: what uxl_mbstowcs makes of any bytes, uxl_wcstombs turns back into the same bytes
#include "base/uxl.h"

#include <algorithm>
#include <atomic>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <locale.h>
#include <mutex>
#include <string>

#include <unicode/uchar.h>
#include <unicode/ucnv.h>

namespace km {

namespace {

constexpr char16_t byte_escape = 0xDC00;
constexpr int invalid = -1;
constexpr int incomplete = -2;

bool is_high(char32_t c) { return c >= 0xD800 && c < 0xDC00; }
bool is_low(char32_t c) { return c >= 0xDC00 && c < 0xE000; }
// Escaped bytes are never ASCII: those are characters in every code page used.
bool is_escape(char16_t c) { return c >= byte_escape + 0x80 && c <= byte_escape + 0xFF; }

// Strict UTF-8: bytes used, 0 never, invalid or incomplete.
int decode_utf8(const unsigned char* s, size_t bytes, char32_t& c) {
    const unsigned char lead = s[0];
    if (lead < 0x80) {
        c = lead;
        return 1;
    }
    int more = lead >= 0xC2 && lead < 0xE0   ? 1
               : lead >= 0xE0 && lead < 0xF0 ? 2
               : lead >= 0xF0 && lead < 0xF5 ? 3
                                             : 0;
    if (!more)
        return invalid;
    c = lead & (0x3F >> more);
    for (int i = 1; i <= more; ++i) {
        if (static_cast<size_t>(i) >= bytes)
            return incomplete;
        // The second byte alone tells overlong forms, surrogates and what lies above U+10FFFF.
        unsigned char low = 0x80, high = 0xBF;
        if (i == 1) {
            low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        }
        if (s[i] < low || s[i] > high)
            return invalid;
        c = (c << 6) | (s[i] & 0x3F);
    }
    return more + 1;
}

int encode_utf8(char32_t c, char* to) {
    if (c < 0x80) {
        to[0] = static_cast<char>(c);
        return 1;
    }
    const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    for (int i = more; i > 0; --i, c >>= 6)
        to[i] = static_cast<char>(0x80 | (c & 0x3F));
    to[0] = static_cast<char>(((0xFF00 >> (more + 1)) & 0xFF) | c);
    return more + 1;
}

// The converter of the default code page; null stands for UTF-8, which needs none.
struct default_page {
    std::atomic<bool> known = false;
    UConverter* converter = nullptr;
};

default_page page;

std::mutex converting; // a converter, and the look for it, are for one thread at a time

UConverter* open_converter() {
    locale_t locale = ::newlocale(LC_CTYPE_MASK, "", nullptr);
    std::string name = locale ? ::nl_langinfo_l(CODESET, locale) : "UTF-8";
    if (locale)
        ::freelocale(locale);
    if (name == "UTF-8" || name == "utf8" || name == "ANSI_X3.4-1968" || name == "US-ASCII")
        return nullptr;
    UErrorCode error = U_ZERO_ERROR;
    UConverter* const opened = ucnv_open(name.c_str(), &error);
    if (U_FAILURE(error))
        return nullptr;
    ucnv_setToUCallBack(opened, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    ucnv_setFromUCallBack(opened, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    return opened;
}

UConverter* converter_of(int) {
    if (page.known)
        return page.converter;
    const std::lock_guard<std::mutex> alone(converting);
    if (!page.known) {
        page.converter = open_converter();
        page.known = true;
    }
    return page.converter;
}

int decode_page(UConverter* converter, const char* s, size_t bytes, char32_t& c) {
    const std::lock_guard<std::mutex> alone(converting);
    // One more byte at a time until the converter has a character: no code page needs many.
    const size_t most = static_cast<size_t>(ucnv_getMaxCharSize(converter)) + 4;
    for (size_t n = 1; n <= bytes && n <= most; ++n) {
        UErrorCode error = U_ZERO_ERROR;
        const char* at = s;
        ucnv_resetToUnicode(converter);
        UChar32 got = ucnv_getNextUChar(converter, &at, s + n, &error);
        if (U_SUCCESS(error)) {
            c = static_cast<char32_t>(got);
            return static_cast<int>(at - s);
        }
        if (error != U_TRUNCATED_CHAR_FOUND && error != U_INDEX_OUTOFBOUNDS_ERROR)
            return invalid;
    }
    return bytes < most ? incomplete : invalid;
}

int encode_page(UConverter* converter, char32_t c, char* to) {
    UErrorCode error = U_ZERO_ERROR;
    char16_t units[2] = {static_cast<char16_t>(c), 0};
    int count = 1;
    if (c >= 0x10000) {
        units[0] = static_cast<char16_t>(0xD7C0 + (c >> 10));
        units[1] = static_cast<char16_t>(0xDC00 | (c & 0x3FF));
        count = 2;
    }
    const std::lock_guard<std::mutex> alone(converting);
    ucnv_resetFromUnicode(converter);
    int bytes = ucnv_fromUChars(converter, to, 16, units, count, &error);
    return U_SUCCESS(error) && bytes > 0 ? bytes : 0;
}

int decode(UConverter* converter, const char* s, size_t bytes, char32_t& c) {
    return converter ? decode_page(converter, s, bytes, c)
                     : decode_utf8(reinterpret_cast<const unsigned char*>(s), bytes, c);
}

int encode(UConverter* converter, char32_t c, char* to) {
    return converter ? encode_page(converter, c, to) : encode_utf8(c, to);
}

// The character at s[0], taking two units where they belong together.
int take_units(const char16_t* s, size_t units, char32_t& c) {
    c = s[0];
    if (is_high(c) && units > 1 && is_low(s[1])) {
        c = 0x10000 + ((c - 0xD800) << 10) + (s[1] - 0xDC00);
        return 2;
    }
    return 1;
}

// Units of one decoded character; an invalid byte is escaped.
int to_units(int used, unsigned char byte, char32_t c, char16_t out[2]) {
    if (used < 1) {
        out[0] = static_cast<char16_t>(byte_escape + byte);
        return 1;
    }
    if (c < 0x10000) {
        out[0] = static_cast<char16_t>(c);
        return 1;
    }
    out[0] = static_cast<char16_t>(0xD7C0 + (c >> 10));
    out[1] = static_cast<char16_t>(0xDC00 | (c & 0x3FF));
    return 2;
}

// One character of the edge between the code page and UTF-8. `from` null: UTF-8.
int convert(UConverter* from, UConverter* to, const char** in, size_t* in_left, char** out,
            size_t* out_left) {
    while (*in_left) {
        char32_t c = 0;
        char bytes[16];
        int used = decode(from, *in, *in_left, c);
        if (used == incomplete)
            return 2;
        int put = 1;
        if (used == invalid) {
            bytes[0] = **in;
            used = 1;
        } else {
            put = encode(to, c, bytes);
            if (put < 1) {
                bytes[0] = '?';
                put = 1;
            }
        }
        if (static_cast<size_t>(put) > *out_left)
            return 1;
        std::memcpy(*out, bytes, static_cast<size_t>(put));
        *in += used;
        *in_left -= static_cast<size_t>(used);
        *out += put;
        *out_left -= static_cast<size_t>(put);
    }
    return 0;
}

int convert_whole(UConverter* from, UConverter* to, const char* in, size_t bytes, char* out,
                  size_t limit, size_t* out_bytes) {
    const size_t room = limit;
    int rest = convert(from, to, &in, &bytes, &out, &limit);
    // An incomplete tail is taken over as it stands.
    for (; rest == 2 && bytes && limit; --bytes, --limit)
        *out++ = *in++;
    *out_bytes = room - limit;
    return rest != 1 && bytes == 0;
}

} // namespace

namespace {
// Most texts are ASCII through and through. These take four characters at a time, up to the first
// four that are not, and return how many were taken.
size_t widen_ascii(char16_t* to, const char* from, size_t count) {
    size_t at = 0;
    for (std::uint32_t four; at + 4 <= count; at += 4) {
        std::memcpy(&four, from + at, sizeof four);
        if (four & 0x80808080U)
            break;
        for (size_t i = 0; to && i < 4; ++i)
            to[at + i] = static_cast<char16_t>(from[at + i]);
    }
    return at;
}

size_t narrow_ascii(char* to, const char16_t* from, size_t count) {
    size_t at = 0;
    for (std::uint64_t four; at + 4 <= count; at += 4) {
        std::memcpy(&four, from + at, sizeof four);
        if (four & 0xFF80FF80FF80FF80U)
            break;
        for (size_t i = 0; to && i < 4; ++i)
            to[at + i] = static_cast<char>(from[at + i]);
    }
    return at;
}

size_t room_for(bool written, size_t limit, size_t wanted) {
    return written ? std::min(limit, wanted) : wanted;
}
} // namespace

size_t uxl_mbsntowcs(int cp, char16_t* to, const char* from, size_t bytes, size_t limit) {
    UConverter* converter = converter_of(cp);
    size_t units = converter ? 0 : widen_ascii(to, from, room_for(to, limit, bytes));
    for (size_t at = units; at < bytes;) {
        if (!converter && static_cast<unsigned char>(from[at]) < 0x80) {
            if (to && units == limit)
                break;
            if (to)
                to[units] = static_cast<char16_t>(from[at]);
            ++units;
            ++at;
            continue;
        }
        char32_t c = 0;
        char16_t out[2];
        const int used = decode(converter, from + at, bytes - at, c);
        const int count = to_units(used, static_cast<unsigned char>(from[at]), c, out);
        if (to && units + static_cast<size_t>(count) > limit)
            break;
        for (int i = 0; to && i < count; ++i)
            to[units + static_cast<size_t>(i)] = out[i];
        units += static_cast<size_t>(count);
        at += used < 1 ? 1 : static_cast<size_t>(used);
    }
    return units;
}

size_t uxl_mbstowcs(int cp, char16_t* to, const char* from, size_t limit) {
    const size_t units = uxl_mbsntowcs(cp, to, from, std::strlen(from), limit);
    if (to && units < limit)
        to[units] = 0;
    return units;
}

size_t uxl_wcsntombs(int cp, char* to, const char16_t* from, size_t units, size_t limit) {
    UConverter* converter = converter_of(cp);
    size_t bytes = converter ? 0 : narrow_ascii(to, from, room_for(to, limit, units));
    for (size_t at = bytes; at < units;) {
        if (!converter && from[at] < 0x80) {
            if (to && bytes == limit)
                break;
            if (to)
                to[bytes] = static_cast<char>(from[at]);
            ++bytes;
            ++at;
            continue;
        }
        char32_t c = 0;
        char out[16];
        const int used = take_units(from + at, units - at, c);
        int put = 1;
        if (used == 1 && is_escape(from[at]))
            out[0] = static_cast<char>(from[at] - byte_escape);
        else if (used == 1 && (is_high(c) || is_low(c)))
            out[0] = '?';
        else if ((put = encode(converter, c, out)) < 1)
            out[0] = '?', put = 1;
        if (to && bytes + static_cast<size_t>(put) > limit)
            break;
        if (to)
            std::memcpy(to + bytes, out, static_cast<size_t>(put));
        bytes += static_cast<size_t>(put);
        at += static_cast<size_t>(used);
    }
    return bytes;
}

size_t uxl_wcstombs(int cp, char* to, const char16_t* from, size_t limit) {
    const size_t bytes = uxl_wcsntombs(cp, to, from, uxl_wcslen(from), limit);
    if (to && bytes < limit)
        to[bytes] = 0;
    return bytes;
}

int uxl_mbtowc(int cp, char16_t out[2], const char* from, size_t bytes) {
    out[0] = out[1] = 0;
    if (bytes == 0)
        return incomplete;
    if (*from == 0)
        return 0;
    char32_t c = 0;
    const int used = decode(converter_of(cp), from, bytes, c);
    if (used > 0)
        to_units(used, 0, c, out);
    return used;
}

int uxl_wctomb(int cp, char* to, char16_t high, char16_t low) {
    const char16_t units[2] = {high, low};
    char32_t c = 0;
    if (take_units(units, low ? 2 : 1, c) == 1 && (is_high(c) || is_low(c)))
        return 0;
    return encode(converter_of(cp), c, to);
}

int uxl_max_bytes(int cp) {
    UConverter* converter = converter_of(cp);
    return converter ? ucnv_getMaxCharSize(converter) + 4 : 4;
}

size_t uxl_wcslen(const char16_t* s) { return std::char_traits<char16_t>::length(s); }

int uxl_wcsncmp(const char16_t* a, const char16_t* b, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (a[i] != b[i] || !a[i])
            return static_cast<int>(a[i]) - static_cast<int>(b[i]);
    return 0;
}

int uxl_wcsnicmp(const char16_t* a, const char16_t* b, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        const char16_t x = uxl_towlower(a[i]), y = uxl_towlower(b[i]);
        if (x != y || !x)
            return static_cast<int>(x) - static_cast<int>(y);
    }
    return 0;
}

char16_t uxl_towupper(char16_t c) {
    if (c < 0x80)
        return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c;
    const UChar32 upper = u_toupper(c);
    return upper < 0x10000 ? static_cast<char16_t>(upper) : c;
}

char16_t uxl_towlower(char16_t c) {
    if (c < 0x80)
        return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
    const UChar32 lower = u_tolower(c);
    return lower < 0x10000 ? static_cast<char16_t>(lower) : c;
}

namespace {

// Bytes of the character at `s`, at least 1.
size_t character_bytes(UConverter* converter, const char* s, size_t bytes) {
    char32_t c = 0;
    const int used = decode(converter, s, bytes, c);
    return used < 1 ? 1 : static_cast<size_t>(used);
}

} // namespace

const char* uxl_strchr(int cp, const char* s, int c) {
    UConverter* converter = converter_of(cp);
    const size_t bytes = std::strlen(s);
    for (size_t at = 0; at < bytes; at += character_bytes(converter, s + at, bytes - at))
        if (s[at] == static_cast<char>(c))
            return s + at;
    return c == 0 ? s + bytes : nullptr;
}

const char* uxl_strstr(int cp, const char* s, const char* part) {
    UConverter* converter = converter_of(cp);
    const size_t bytes = std::strlen(s), wanted = std::strlen(part);
    for (size_t at = 0; at + wanted <= bytes;
         at += character_bytes(converter, s + at, bytes - at)) {
        if (std::memcmp(s + at, part, wanted) == 0)
            return s + at;
        if (at == bytes)
            break;
    }
    return nullptr;
}

char* uxl_strncpy(int cp, char* to, const char* from, size_t n) {
    UConverter* converter = converter_of(cp);
    const size_t bytes = std::strlen(from);
    size_t at = 0;
    while (at < bytes) {
        const size_t one = character_bytes(converter, from + at, bytes - at);
        if (at + one > n)
            break;
        at += one;
    }
    std::memcpy(to, from, at);
    std::memset(to + at, 0, n - at);
    return to;
}

int uxl_looks_like_utf16(const char* bytes, size_t count) {
    constexpr size_t most = 512, fewest = 8;
    const auto is = [bytes](size_t at, unsigned char byte) {
        return static_cast<unsigned char>(bytes[at]) == byte;
    };
    if (count >= 2 && ((is(0, 0xFF) && is(1, 0xFE)) || (is(0, 0xFE) && is(1, 0xFF))))
        return 1;
    const size_t looked = std::min(count, most) / 2 * 2;
    size_t nul[2] = {0, 0};
    for (size_t at = 0; at < looked; ++at)
        nul[at % 2] += bytes[at] == 0;
    const size_t more = std::max(nul[0], nul[1]), less = std::min(nul[0], nul[1]);
    return looked >= fewest && more * 4 >= looked && less * 8 <= more;
}

int uxl_fgetwc(FILE* file) {
    UConverter* converter = converter_of(0);
    char bytes[16];
    size_t have = 0;
    for (;;) {
        const int byte = ::getc(file);
        if (byte == EOF) {
            if (have == 0)
                return -1;
            break;
        }
        bytes[have++] = static_cast<char>(byte);
        char32_t c = 0;
        const int used = decode(converter, bytes, have, c);
        if (used > 0)
            return static_cast<int>(c);
        if (used == invalid || have == sizeof bytes)
            break;
    }
    while (have > 1)
        ::ungetc(static_cast<unsigned char>(bytes[--have]), file);
    return byte_escape + static_cast<unsigned char>(bytes[0]);
}

int uxl_ungetwc(int c, FILE* file) {
    char bytes[16];
    int count = 1;
    if (c < 0)
        return -1;
    if (is_escape(static_cast<char16_t>(c)) && c < 0x10000)
        bytes[0] = static_cast<char>(c - byte_escape);
    else if ((count = encode(converter_of(0), static_cast<char32_t>(c), bytes)) < 1)
        return -1;
    while (count > 0)
        if (::ungetc(static_cast<unsigned char>(bytes[--count]), file) == EOF)
            return -1;
    return c;
}

int uxl_to_utf8(int cp, const char* in, size_t bytes, char* out, size_t limit, size_t* out_bytes) {
    return convert_whole(converter_of(cp), nullptr, in, bytes, out, limit, out_bytes);
}

int uxl_from_utf8(int cp, const char* in, size_t bytes, char* out, size_t limit,
                  size_t* out_bytes) {
    return convert_whole(nullptr, converter_of(cp), in, bytes, out, limit, out_bytes);
}

int uxl_to_utf8_r(int cp, const char** in, size_t* in_left, char** out, size_t* out_left) {
    return convert(converter_of(cp), nullptr, in, in_left, out, out_left);
}

int uxl_from_utf8_r(int cp, const char** in, size_t* in_left, char** out, size_t* out_left) {
    return convert(nullptr, converter_of(cp), in, in_left, out, out_left);
}

const char* uxl_os_lang_name() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value && *value)
            return value;
    }
    return "C";
}

const char* uxl_canonical_lang(const char* name) {
    static char buffer[64];
    const size_t n = std::strcspn(name, ".@");
    const size_t cut = n < sizeof buffer ? n : sizeof buffer - 1;
    std::memcpy(buffer, name, cut);
    buffer[cut] = 0;
    return buffer;
}

void uxl_uninit() {
    if (page.converter)
        ucnv_close(page.converter);
    page.converter = nullptr;
    page.known = false;
}

} // namespace km
