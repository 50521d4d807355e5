// zip_time: times in the form of the zip container
#pragma once

namespace km {

// Date and time in 32 bits, in steps of two seconds. Years below 1980 become 1980-01-01 00:00:00,
// years above 2107 the last moment of 2107.
long dostime(int year, int month, int day, int hour, int minute, int second);
// The form of seconds since 1970, rounded up to an even second, in UTC; -1 asks for the current
// time, which is stored.
long unix2dostime(long* seconds);

} // namespace km
