// zip_time: times in the form of the zip container
// format: docs/formats/zip.md
// invariant: the result fits 32 bits
#include "zip_time.h"

#include <ctime>

namespace km {

long dostime(int year, int month, int day, int hour, int minute, int second) {
    if (year < 1980)
        return dostime(1980, 1, 1, 0, 0, 0);
    if (year > 2107)
        return dostime(2107, 12, 31, 23, 59, 58);
    return (static_cast<long>(year - 1980) << 25) | (static_cast<long>(month) << 21) |
           (static_cast<long>(day) << 16) | (static_cast<long>(hour) << 11) |
           (static_cast<long>(minute) << 5) | (second / 2);
}

long unix2dostime(long* seconds) {
    if (*seconds == -1)
        *seconds = ::time(nullptr);
    const time_t even = *seconds + (*seconds & 1);
    tm utc{};
    if (!::gmtime_r(&even, &utc))
        return dostime(1980, 1, 1, 0, 0, 0);
    return dostime(utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                   utc.tm_sec);
}

} // namespace km
