// base/uxl: 16-bit text and code pages, over ICU
//
// The first argument `cp` of a function that handles bytes is a code page; 0 is the default one,
// that of the locale in the environment (read once, independent of setlocale; the plain ASCII of
// an unset locale counts as UTF-8). Characters above U+FFFF stand as two units.
//
// Bytes that are no character (names of files, texts of strangers) survive: uxl_mbstowcs and
// uxl_fgetwc turn such a byte b into the unit U+DC00 + b, and uxl_wcstombs turns it back.
// uxl_mbtowc and uxl_wctomb are strict instead.
#pragma once

#include <cstddef>
#include <cstdio>

namespace km {

// Converts terminated bytes to units. Returns the number of units without the terminator. With a
// null `to` it only measures; else at most `limit` units are written, and a terminator behind them
// if it still fits.
size_t uxl_mbstowcs(int cp, char16_t* to, const char* from, size_t limit);
// The same over exactly `bytes` bytes; no terminator is written or looked for.
size_t uxl_mbsntowcs(int cp, char16_t* to, const char* from, size_t bytes, size_t limit);
// The mirror: terminated units to bytes. A unit that has no place in the code page becomes '?'.
size_t uxl_wcstombs(int cp, char* to, const char16_t* from, size_t limit);
size_t uxl_wcsntombs(int cp, char* to, const char16_t* from, size_t units, size_t limit);

// One character. Bytes used, 0 for NUL, -1 invalid, -2 incomplete; out[1] is 0 or the second unit.
int uxl_mbtowc(int cp, char16_t out[2], const char* from, size_t bytes);
// Bytes written (at most uxl_max_bytes), below 1 if the character cannot be converted.
int uxl_wctomb(int cp, char* to, char16_t high, char16_t low = 0);
int uxl_max_bytes(int cp);

size_t uxl_wcslen(const char16_t* s);
// Like their namesakes of the C library: they stop at a terminator; the sign tells the order.
int uxl_wcsncmp(const char16_t* a, const char16_t* b, size_t n);
int uxl_wcsnicmp(const char16_t* a, const char16_t* b, size_t n);
// Case of one unit, the same in every locale.
char16_t uxl_towupper(char16_t c);
char16_t uxl_towlower(char16_t c);

// Aware of characters of several bytes.
const char* uxl_strchr(int cp, const char* s, int c);
const char* uxl_strstr(int cp, const char* s, const char* part);
// Copies whole characters of at most n bytes; fills the rest with NUL, as strncpy.
char* uxl_strncpy(int cp, char* to, const char* from, size_t n);

// One character (a code point) from a file in the default code page, -1 at the end.
int uxl_fgetwc(FILE* file);
int uxl_ungetwc(int c, FILE* file);

// Whole conversions; 1, or 0 if the output is too small. `out_bytes` takes the bytes written.
int uxl_to_utf8(int cp, const char* in, size_t bytes, char* out, size_t limit, size_t* out_bytes);
int uxl_from_utf8(int cp, const char* in, size_t bytes, char* out, size_t limit, size_t* out_bytes);
// Conversions that advance `in` and `out` and lower the counts: 0 all done, 1 output full, 2 the
// input ends inside a character, whose bytes stay in the input.
int uxl_to_utf8_r(int cp, const char** in, size_t* in_left, char** out, size_t* out_left);
int uxl_from_utf8_r(int cp, const char** in, size_t* in_left, char** out, size_t* out_left);

// By a byte order mark, or by what stands at the front: every second byte is NUL in most scripts'
// words and in all marks. For text files that should be UTF-8.
int uxl_looks_like_utf16(const char* bytes, size_t count);

// Language of the system ("de_DE.UTF-8", "C"), from the environment; never null.
const char* uxl_os_lang_name();
// The language without code page and modifier ("de_DE"); a static buffer.
const char* uxl_canonical_lang(const char* name);

// Closes the converters; the next use opens them again.
void uxl_uninit();

} // namespace km
