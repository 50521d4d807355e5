// compressor: raw deflate and inflate over channels
#pragma once

#include <memory>

struct z_stream_s;

namespace km {

// One raw deflate stream (no zlib header). Its errors go nowhere: they show in the sizes that the
// zip container compares.
class compressor {
  public:
    explicit compressor(int level = -1);
    ~compressor();
    compressor(const compressor&) = delete;
    compressor& operator=(const compressor&) = delete;
    // 0 to 9, or -1 for the usual level.
    void init(int level, int unused);
    // Lends the bytes until needs_input().
    void set_input(const unsigned char* buffer, int length);
    void set_dictionary(const unsigned char* buffer, int length);
    // Between entries only: 0, 1 or 2; 0 to 9 or -1.
    void set_strategy(int strategy);
    void set_level(int level);
    // One step: bytes produced. Ends with a flush point, or with the end of the stream after
    // set_finish().
    int compress(unsigned char* buffer, int length);
    void reset();
    void end();
    void set_finish(int finish) { finish_ = finish; }
    bool needs_input() const;
    int get_finished() const { return finished_; }
    unsigned long total_in() const;
    unsigned long total_out() const;

  private:
    void compress_err(int, const char*) const {}
    bool check_buf_len(const void* buffer, int length) const;
    int level_ = -1;
    int strategy_ = 0;
    int finish_ = 0;
    int finished_ = 0;
    std::unique_ptr<z_stream_s> stream_;
};

// One raw inflate stream. A negative status is kept, and every later call does nothing.
class decompressor {
  public:
    decompressor();
    ~decompressor();
    decompressor(const decompressor&) = delete;
    decompressor& operator=(const decompressor&) = delete;
    void init(int unused);
    void set_input(const unsigned char* buffer, int length);
    void set_dictionary(const unsigned char* buffer, int length);
    // Bytes produced; -1 if the status was negative.
    int decompress(unsigned char* buffer, int length);
    void reset();
    void end();
    bool needs_input() const;
    // Input bytes that were set and not used.
    int unused_input() const;
    int get_finished() const { return finished_; }
    int get_needs_dictionary() const { return needs_dictionary_; }
    // Last result of zlib: 0 good, 1 the end, negative an error.
    int get_status() const { return status_; }
    unsigned long total_in() const;
    unsigned long total_out() const;

  private:
    bool check_buf_len(const void* buffer, int length);
    int finished_ = 0;
    int needs_dictionary_ = 0;
    int status_ = 0;
    std::unique_ptr<z_stream_s> stream_;
};

} // namespace km
