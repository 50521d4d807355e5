// trace_style: how trace files are numbered and rotated
// format: docs/formats/trace.md
// invariant: a number below 1, or one that was no number, counts as 1
#include "trace_style.h"

#include "trclog.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace km {

namespace {

int advanced(long number, int advance, long first, long last) {
    number = std::max(number, 1L) + (advance ? 1 : 0);
    return static_cast<int>(number > last ? first : number);
}

int plain(int number, char** name, char** next) {
    std::snprintf(*name, trace_style::name_size, "%d", number);
    std::snprintf(*next, trace_style::next_size, "%d", number);
    return number;
}

} // namespace

int default_trace_style::get_next_file(int file_num, char** name, char** next, int advance) {
    return plain(advanced(file_num, advance, 1, last_), name, next);
}

int ten_trace_style::get_next_file(int file_num, char** name, char** next, int advance) {
    const long base = file_num > 0 ? file_num / 10 : 0;
    return plain(advanced(file_num, advance, base * 10 + 1, base * 10 + 9), name, next);
}

int process_trace_style::get_next_file(int file_num, char** name, char** next, int advance) {
    const int number = advanced(file_num, advance, 1, last_);
    std::snprintf(*name, name_size, ".%ld.%d", process_, number);
    std::snprintf(*next, next_size, "%d", number);
    return number;
}

int time_trace_style::get_next_file(int file_num, char** name, char** next, int advance) {
    char stamp[20] = "";
    const time_t now = ::time(nullptr);
    tm local{};
    ::localtime_r(&now, &local);
    if (std::strftime(stamp, sizeof stamp, format_.mbcs_str(), &local) == 0)
        stamp[0] = 0;
    const bool same = last_stamp_ == ustring(stamp);
    const int number = same ? advanced(file_num, advance, 1, 2147483647L) : 1;
    last_stamp_ = stamp;
    std::snprintf(*name, name_size, ".%s.%d", stamp, number);
    std::snprintf(*next, next_size, "%d", number);
    return number;
}

trace_style* trace::get_trace_style(int style) {
    switch (style) {
    case 1:
        return new unlimited_trace_style;
    case 2:
        return new ten_trace_style;
    case 3:
        return new process_trace_style(static_cast<long>(::getpid()));
    case 4:
        return new time_trace_style("%H");
    case 5:
        return new time_trace_style("d%dh%H");
    default:
        if (style >= 10)
            return new enlarged_trace_style(style);
        return new default_trace_style;
    }
}

} // namespace km
