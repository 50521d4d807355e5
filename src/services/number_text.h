// number_text: numbers to text in a radix
#pragma once

namespace km {

// Each writes the digits of `value` (above 9 lower-case letters) and a terminator to `buffer`,
// which the caller makes large enough (66 bytes serve every radix), and returns it. The radix is 2
// to 36. Only radix 10 gives a minus sign; other radixes of a negative number show its 32-bit
// pattern.
char* itoa(int value, char* buffer, int radix);
char* _ltoa(long value, char* buffer, int radix);
char* ultoa(unsigned long value, char* buffer, int radix);

// The common part: the digits of `value`, behind a '-' if `negative` is not 0.
char* xtoa(unsigned long value, char* buffer, int radix, int negative);

} // namespace km
