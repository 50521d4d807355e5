// stream_digest: SHA-256 of a stream whose state can be kept and taken up again
//
// A reader is ahead of the commands that use its bytes. So the last bytes are not worked in at
// once: the state is to be had for any place among them.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace kmhost {

class stream_digest {
  public:
    stream_digest();
    ~stream_digest();
    stream_digest(const stream_digest&) = delete;
    stream_digest& operator=(const stream_digest&) = delete;

    // The bytes that follow in the stream.
    void add(const unsigned char* bytes, std::size_t count);
    // Bytes of the stream so far.
    long position() const;
    // The state behind the first `offset` bytes, as text; "" if that place lies too far back, or
    // ahead.
    std::string state_at(long offset);
    // Begins behind the first `offset` bytes, with their state. False: it is none of that offset,
    // and nothing has changed.
    bool restore(long offset, const std::string& state);
    // 64 hexadecimal digits of everything; ends the work.
    std::string finish();

  private:
    void work_in(std::size_t count);

    struct inner;
    std::unique_ptr<inner> inner_;
};

// Whether a text is a digest: 64 hexadecimal digits. Capital ones are made small.
bool is_digest(std::string& text);

} // namespace kmhost
