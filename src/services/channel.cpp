// channel: abstract byte channels
// no format
// invariant: the bodies here only use the single-byte operations
#include "channel.h"

namespace km {

int input_channel::read(unsigned char* buffer, int length) {
    int got = 0;
    for (; got < length; ++got) {
        const int byte = read();
        if (byte < 0)
            return got ? got : -1;
        buffer[got] = static_cast<unsigned char>(byte);
    }
    return got;
}

long input_channel::ignore(long count) {
    for (long i = 0; i < count; ++i)
        read();
    return count;
}

void input_channel::close() {}

void output_channel::write(const unsigned char* buffer, int length) {
    for (int i = 0; i < length; ++i)
        write(static_cast<int>(buffer[i]));
}

} // namespace km
