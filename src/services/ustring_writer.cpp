// ustring_writer: output of texts to a channel, plain, as UTF or scrambled
// no format
// invariant: the key of the scrambling moves on with every byte that goes out, across calls
#include "ustring_writer.h"

#include "channel.h"

#include <climits>
#include <cstring>

namespace km {

void writer::write(int byte) { channel_->write(byte); }

void writer::write(const char* bytes, int count) {
    channel_->write(reinterpret_cast<const unsigned char*>(bytes), count);
}

void writer::flush() { channel_->flush(); }

int writer::get_error() { return channel_->get_error(); }

int ustring_writer::bytes_of(const char* text) const {
    const std::size_t count = std::strlen(text) + (terminator_ ? 1 : 0);
    return count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

void ustring_writer::write(const ustring& text) {
    if (utf_)
        text.writeUTF(*channel_);
    else
        write(text.mbcs_str());
}

void ustring_writer::write(const char* text) {
    if (utf_) {
        ustring(text).writeUTF(*channel_);
        return;
    }
    const int count = bytes_of(text);
    if (count)
        writer::write(text, count);
}

void ustring_writer::writeln(const ustring& text) {
    write(text);
    writeln();
}

void ustring_writer::writeln() { write("\n"); }

ustring_xor_writer::ustring_xor_writer(output_channel* to, const unsigned char* key, int length,
                                       int utf, int terminator)
    : ustring_writer(to, utf, terminator) {
    if (key && length > 0)
        key_.assign(reinterpret_cast<const char*>(key), static_cast<std::size_t>(length));
}

void ustring_xor_writer::write(const char* text) {
    if (utf_ || key_.empty()) {
        ustring_writer::write(text);
        return;
    }
    const int count = bytes_of(text);
    std::string scrambled(text, static_cast<std::size_t>(count));
    for (char& byte : scrambled) {
        byte = static_cast<char>(byte ^ key_[position_]);
        position_ = (position_ + 1) % key_.size();
    }
    if (count)
        writer::write(scrambled.data(), count);
}

} // namespace km
