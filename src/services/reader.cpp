// reader: source of characters with push-back
// no format
// invariant: a block read never gives 0
#include "reader.h"

#include <algorithm>

namespace km {

int reader::read() {
    char16_t one = 0;
    return read(&one, 0, 1) == 1 ? one : -1;
}

long reader::skip(long n) {
    char16_t block[8192];
    long gone = 0;
    while (gone < n) {
        const int got = read(block, 0, static_cast<int>(std::min(n - gone, 8192L)));
        if (got < 1)
            break;
        gone += got;
    }
    return gone;
}

void string_reader::reset_stream(const ustring& text) {
    text_ = text;
    position_ = 0;
}

int string_reader::read(char16_t* buffer, int offset, int length) {
    int got = 0;
    while (got < length && text_[static_cast<unsigned>(position_)])
        buffer[offset + got++] = text_[static_cast<unsigned>(position_++)];
    return got ? got : -1;
}

} // namespace km
