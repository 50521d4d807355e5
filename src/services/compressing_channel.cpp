// compressing_channel: channels that compress and expand
// format: deflate streams without a header
// invariant: no loop goes on that neither takes nor gives a byte
#include "compressing_channel.h"

#include "engine_exit.h"

#include <algorithm>
#include <new>

namespace km {

namespace {
// Steps are gathered, so that the inner channel is not written to for each of them.
constexpr int hold_size = 65536;

// Zeroed; null if there is no memory.
unsigned char* new_block(int size) {
    return new (std::nothrow) unsigned char[static_cast<unsigned>(size)]();
}
} // namespace

compressing_channel::compressing_channel(output_channel* inner, compressor* engine, int size)
    : filter_output_channel(inner), engine_(engine),
      out_buffer_(new_block(hold_size + std::max(size, 1))), out_size_(size) {
    if (!inner || !engine || !out_buffer_)
        engine_exit(1, "a compressing channel needs a compressor, a channel and memory");
}

void compressing_channel::hand_on() {
    if (held_ > 0)
        inner_->write(out_buffer_.get(), held_);
    held_ = 0;
}

bool compressing_channel::compress() {
    const unsigned long in_before = engine_->total_in();
    const int made = engine_->compress(out_buffer_.get() + held_, out_size_);
    held_ += std::max(made, 0);
    if (held_ >= hold_size)
        hand_on();
    return made > 0 || engine_->total_in() != in_before;
}

void compressing_channel::write(int byte) {
    const auto one = static_cast<unsigned char>(byte);
    write(&one, 1);
}

void compressing_channel::write(const unsigned char* buffer, int length) {
    if (engine_->get_finished())
        engine_exit(1, "a compressed stream is written to behind its end");
    engine_->set_input(buffer, length);
    while (!engine_->needs_input() && compress()) {
    }
    hand_on();
}

int compressing_channel::finish() {
    if (engine_->get_finished())
        return 1;
    engine_->set_finish(1);
    while (!engine_->get_finished() && compress()) {
    }
    hand_on();
    return engine_->get_finished();
}

void compressing_channel::close() {
    if (finish_on_close_)
        finish();
    inner_->close();
}

decompressing_channel::decompressing_channel(input_channel* inner, decompressor* engine, int size)
    : filter_input_channel(inner), engine_(engine), in_buffer_(new_block(std::max(size, 1))),
      in_size_(size) {
    if (!inner || !engine || !in_buffer_)
        engine_exit(1, "an expanding channel needs a decompressor, a channel and memory");
}

void decompressing_channel::fill() {
    in_length_ = inner_->read(in_buffer_.get(), next_fill());
    if (in_length_ < 0) {
        if (get_error())
            return;
        in_length_ = 0;
    }
    engine_->set_input(in_buffer_.get(), in_length_);
}

int decompressing_channel::read() {
    unsigned char byte = 0;
    return read(&byte, 1) == 1 ? byte : -1;
}

int decompressing_channel::read(unsigned char* buffer, int length) {
    if (length < 1)
        return 0;
    if (engine_->get_status() < 0)
        return -1;
    if (engine_->needs_input()) {
        fill();
        if (get_error())
            return -1;
    }
    for (;;) {
        const int got = engine_->decompress(buffer, length);
        if (got != 0)
            return got;
        if (engine_->get_finished() || engine_->get_needs_dictionary())
            return -1;
        if (!engine_->needs_input())
            continue;
        fill();
        if (get_error())
            return -1;
    }
}

long decompressing_channel::ignore(long count) {
    const std::unique_ptr<unsigned char[]> scratch(new_block(in_size_));
    if (!scratch)
        engine_exit(1, "no memory to pass over compressed data");
    long gone = 0;
    while (gone < count) {
        const int got =
            read(scratch.get(), static_cast<int>(std::min<long>(count - gone, in_size_)));
        if (got < 1)
            break;
        gone += got;
    }
    return gone;
}

} // namespace km
