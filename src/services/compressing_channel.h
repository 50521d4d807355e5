// compressing_channel: channels that compress and expand
#pragma once

#include "channel.h"
#include "compressor.h"

#include <memory>

namespace km {

// Deflates what is written to it. Writing behind the end of the stream ends the process with
// status 1.
class compressing_channel : public filter_output_channel {
  public:
    // Takes the compressor over.
    compressing_channel(output_channel* inner, compressor* engine, int size);
    void write(int byte) override;
    void write(const unsigned char* buffer, int length) override;
    void close() override;
    // Ends the stream once.
    int finish();
    void set_finish_on_close(int value) { finish_on_close_ = value; }

  protected:
    // One step of at most `size` bytes of output; false if it neither took nor gave a byte. The
    // size of a step decides where flush points fall, and so the bytes of the stream.
    bool compress();
    void hand_on();
    std::unique_ptr<compressor> engine_;

  private:
    int finish_on_close_ = 1;
    std::unique_ptr<unsigned char[]> out_buffer_;
    int out_size_;
    int held_ = 0;
};

// Inflates what it reads from its inner channel.
class decompressing_channel : public filter_input_channel {
  public:
    decompressing_channel(input_channel* inner, decompressor* engine, int size);
    int read() override;
    int read(unsigned char* buffer, int length) override;
    long ignore(long count) override;

  protected:
    // How many bytes the next step asks the inner channel for; 1 to the size of the buffer.
    virtual int next_fill() const { return in_size_; }

    std::unique_ptr<decompressor> engine_;
    std::unique_ptr<unsigned char[]> in_buffer_;
    int in_length_ = 0;
    int in_size_;

  private:
    void fill();
};

} // namespace km
