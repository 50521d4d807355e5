// token_channel: a text with its variables resolved, as bytes
// no format
// invariant: characters of `line` before `line_position` have been handed out
#include "token_channel.h"

#include "base/uxl.h"
#include "istream_reader.h"
#include "variable_list.h"

#include <algorithm>
#include <new>

namespace km {

namespace {
constexpr char16_t dollar = u'$';

bool is_first_of_pair(char16_t c) { return c >= 0xD800 && c < 0xDC00; }
bool is_second_of_pair(char16_t c) { return c >= 0xDC00 && c < 0xE000; }
} // namespace

token_input_channel::token_input_channel(variable_list* variables, input_channel* inner)
    : filter_input_channel(inner), variables_(variables),
      wide_buffer_(new (std::nothrow) char16_t[block_size]),
      byte_buffer_(new (std::nothrow) char[static_cast<size_t>(uxl_max_bytes(0))]),
      text_reader_(new (std::nothrow) istream_reader(inner, 0)) {
    if (!variables_ || !inner || !wide_buffer_ || !byte_buffer_ || !text_reader_)
        error_ = channel_no_inner;
}

token_input_channel::~token_input_channel() = default;

int token_input_channel::get_error() {
    return error_ || !inner_ ? error_ : filter_input_channel::get_error();
}

// Puts up to `most` characters behind the line; how many came, 0 at the end.
int token_input_channel::append_from_reader(int most) {
    const int got = std::max(0, text_reader_->read(wide_buffer_.get(), 0, most));
    line_.append(wide_buffer_.get(), static_cast<unsigned>(got));
    settled_ = settled_ && got == 0;
    return got;
}

// The line starts with a dollar sign afterwards only if that is no reference which could be
// resolved. Where resolving made the line short it looks ahead again, since a reference may then
// stand at the end of the line, cut.
void token_input_channel::substitute() {
    int ahead = 0;
    do {
        line_.remove(0, line_position_);
        line_position_ = 0;
        ahead = line_.length() < block_size ? append_from_reader(ahead_size) : 0;
        if (settled_)
            return;
        const ustring before(line_);
        variables_->substitute_variables(line_);
        settled_ = line_ == before;
    } while (ahead && line_.length() < block_size && line_[0] == dollar);
}

// Makes the character at the position the next one to convert; false at the end.
bool token_input_channel::next_character() {
    for (;;) {
        if (line_position_ == line_.length()) {
            line_.remove();
            line_position_ = 0;
            if (append_from_reader(block_size) == 0)
                return false;
        }
        // A settled line would cost a copy of its rest at every dollar sign, for nothing.
        const bool may_grow = line_.length() - line_position_ < block_size;
        if (line_[line_position_] != dollar || (settled_ && !may_grow))
            return true;
        substitute();
        if (!line_.empty())
            return true;
    }
}

// Converts the character at the position; its bytes, or below 1.
int token_input_channel::convert() {
    const char16_t high = line_[line_position_++];
    if (!is_first_of_pair(high))
        return uxl_wctomb(0, byte_buffer_.get(), high);
    if (line_position_ == line_.length())
        append_from_reader(1);
    if (!is_second_of_pair(line_[line_position_]))
        return 0;
    return uxl_wctomb(0, byte_buffer_.get(), high, line_[line_position_++]);
}

int token_input_channel::read() {
    if (error_)
        return -1;
    if (pending_bytes_ == 0) {
        if (!next_character())
            return -1;
        pending_bytes_ = convert();
        byte_position_ = 0;
        if (pending_bytes_ < 1) {
            pending_bytes_ = 0;
            error_ = channel_corrupted;
            return -1;
        }
    }
    --pending_bytes_;
    return static_cast<unsigned char>(byte_buffer_[static_cast<size_t>(byte_position_++)]);
}

int token_input_channel::read(unsigned char* buffer, int length) {
    if (length < 1)
        return length;
    int got = 0;
    for (int byte; got < length && (byte = read()) >= 0;)
        buffer[got++] = static_cast<unsigned char>(byte);
    return got == length || (got && !error_) ? got : -1;
}

long token_input_channel::ignore(long count) {
    long gone = 0;
    while (gone < count && read() >= 0)
        ++gone;
    return gone == 0 && count > 0 && get_error() ? -1 : gone;
}

int token_input_channel::skip(int count) { return static_cast<int>(std::max(0L, ignore(count))); }

} // namespace km
