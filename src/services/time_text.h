// time_text: times as people read them
#pragma once

#include <ctime>

namespace km {

// Local time as "YYYY-MM-DD HH:MM:SS"; empty where `size` (bytes) is too small.
void get_time_stamp(std::time_t seconds, char* text, int size);

} // namespace km
