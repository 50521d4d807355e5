// time_text: times as people read them
// no format
// invariant: the text is terminated
#include "time_text.h"

namespace km {

void get_time_stamp(std::time_t seconds, char* text, int size) {
    if (!text || size <= 0)
        return;
    std::tm local{};
    if (!::localtime_r(&seconds, &local) ||
        !std::strftime(text, static_cast<std::size_t>(size), "%Y-%m-%d %H:%M:%S", &local))
        text[0] = '\0';
}

} // namespace km
