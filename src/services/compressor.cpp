// compressor: raw deflate and inflate over channels
// format: deflate streams without a header
// invariant: a call never takes bytes that were not set, nor gives more than its buffer holds
#include "compressor.h"

#include <zlib.h>

namespace km {

namespace {

constexpr int raw_window = -15;
constexpr int memory_level = 8;

bool valid_level(int level) { return level >= -1 && level <= 9; }

void give(z_stream& stream, const unsigned char* buffer, int length) {
    stream.next_in = const_cast<unsigned char*>(buffer);
    stream.avail_in = static_cast<uInt>(length);
}

void take(z_stream& stream, unsigned char* buffer, int length) {
    stream.next_out = buffer;
    stream.avail_out = static_cast<uInt>(length);
}

} // namespace

compressor::compressor(int level) { init(level, 0); }

compressor::~compressor() { end(); }

void compressor::init(int level, int) {
    if (!valid_level(level))
        compress_err(Z_STREAM_ERROR, "level");
    level_ = level;
    end();
    stream_ = std::make_unique<z_stream>();
    *stream_ = {};
    deflateInit2_(stream_.get(), level, Z_DEFLATED, raw_window, memory_level, Z_DEFAULT_STRATEGY,
                  "1.1.3", static_cast<int>(sizeof(z_stream)));
}

bool compressor::check_buf_len(const void* buffer, int length) const {
    if (buffer && length >= 0)
        return true;
    compress_err(Z_BUF_ERROR, "buffer");
    return false;
}

void compressor::set_input(const unsigned char* buffer, int length) {
    if (check_buf_len(buffer, length))
        give(*stream_, buffer, length);
}

void compressor::set_dictionary(const unsigned char* buffer, int length) {
    if (check_buf_len(buffer, length))
        deflateSetDictionary(stream_.get(), buffer, static_cast<uInt>(length));
}

void compressor::set_strategy(int strategy) {
    if (strategy < 0 || strategy > 2)
        compress_err(Z_STREAM_ERROR, "strategy");
    if (strategy == strategy_)
        return;
    strategy_ = strategy;
    deflateParams(stream_.get(), level_, strategy_);
}

void compressor::set_level(int level) {
    if (!valid_level(level))
        compress_err(Z_STREAM_ERROR, "level");
    if (level == level_)
        return;
    level_ = level;
    deflateParams(stream_.get(), level_, strategy_);
}

int compressor::compress(unsigned char* buffer, int length) {
    if (!check_buf_len(buffer, length))
        return 0;
    take(*stream_, buffer, length);
    const int result = deflate(stream_.get(), finish_ ? Z_FINISH : Z_PARTIAL_FLUSH);
    if (finish_ && result == Z_STREAM_END)
        finished_ = 1;
    return length - static_cast<int>(stream_->avail_out);
}

void compressor::reset() {
    deflateReset(stream_.get());
    finish_ = finished_ = 0;
}

// The ended stream stays: zlib refuses what comes behind.
void compressor::end() {
    if (stream_)
        deflateEnd(stream_.get());
}

bool compressor::needs_input() const { return stream_->avail_in == 0; }
unsigned long compressor::total_in() const { return stream_->total_in; }
unsigned long compressor::total_out() const { return stream_->total_out; }

decompressor::decompressor() { init(0); }

decompressor::~decompressor() { end(); }

void decompressor::init(int) {
    end();
    stream_ = std::make_unique<z_stream>();
    *stream_ = {};
    status_ = inflateInit2_(stream_.get(), raw_window, "1.1.3", static_cast<int>(sizeof(z_stream)));
}

bool decompressor::check_buf_len(const void* buffer, int length) {
    if (status_ < 0)
        return false;
    if (!buffer)
        status_ = Z_MEM_ERROR;
    else if (length < 0)
        status_ = Z_DATA_ERROR;
    return status_ >= 0;
}

void decompressor::set_input(const unsigned char* buffer, int length) {
    if (check_buf_len(buffer, length))
        give(*stream_, buffer, length);
}

void decompressor::set_dictionary(const unsigned char* buffer, int length) {
    if (check_buf_len(buffer, length))
        status_ = inflateSetDictionary(stream_.get(), buffer, static_cast<uInt>(length));
}

int decompressor::decompress(unsigned char* buffer, int length) {
    if (!check_buf_len(buffer, length))
        return -1;
    take(*stream_, buffer, length);
    status_ = inflate(stream_.get(), Z_PARTIAL_FLUSH);
    if (status_ == Z_STREAM_END)
        finished_ = 1;
    if (status_ == Z_NEED_DICT)
        needs_dictionary_ = 1;
    return length - static_cast<int>(stream_->avail_out);
}

void decompressor::reset() {
    status_ = inflateReset(stream_.get());
    if (status_ != Z_OK)
        return;
    stream_->avail_in = 0;
    needs_dictionary_ = finished_ = 0;
}

void decompressor::end() {
    if (stream_)
        inflateEnd(stream_.get());
}

bool decompressor::needs_input() const { return stream_->avail_in == 0; }
int decompressor::unused_input() const { return static_cast<int>(stream_->avail_in); }
unsigned long decompressor::total_in() const { return stream_->total_in; }
unsigned long decompressor::total_out() const { return stream_->total_out; }

} // namespace km
