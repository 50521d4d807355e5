// deflated_entry: data of one zip entry, deflated apart from its container
#pragma once

#include "compressing_channel.h"
#include "crc.h"

#include <string>

namespace km {

// Step of the deflate stream of an entry: with the length of each write it decides where the flush
// points fall, and so the bytes.
constexpr int entry_step = 512;
// A file is written to it in portions of that length.
constexpr int entry_portion = 4096;

struct deflated_data {
    std::string bytes;
    long size = 0; // before it was deflated
    long crc = 0;  // of that
};

// Deflates one entry after the other. Written to in the same portions as a zipping_channel of the
// same level it gives the same bytes. Belongs to one thread.
class entry_deflater {
  public:
    // 0 to 9, or -1 for the usual level.
    explicit entry_deflater(int level = -1);
    void write(const unsigned char* buffer, int length);
    // What was written since the last call, deflated.
    deflated_data finish();

  private:
    class sink : public output_channel {
      public:
        void write(int byte) override { bytes.push_back(static_cast<char>(byte)); }
        void write(const unsigned char* buffer, int length) override {
            bytes.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
        }
        int get_error() override { return 0; }
        std::string bytes;
    };
    class stream : public compressing_channel {
      public:
        stream(output_channel* to, int level);
        void begin_again() { engine_->reset(); }
    };

    sink sink_;
    stream stream_;
    CRC32 crc_;
    long size_ = 0;
};

} // namespace km
