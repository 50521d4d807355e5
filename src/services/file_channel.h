// file_channel: channels over files
#pragma once

#include "channel.h"
#include "fileio.h"

namespace km {

// Reads a file without a buffer of its own, so that the file's position is exact after each byte.
class file_input_channel : public input_channel {
  public:
    explicit file_input_channel(const char* path);
    explicit file_input_channel(const ustring& path);
    explicit file_input_channel(const pathname& path);
    file_input_channel(const pathname& path, long offset);
    // A duplicate of the handle: both share one position.
    explicit file_input_channel(const file_handle& handle) : handle_(handle) {}
    ~file_input_channel() override { handle_.close(); }
    int read() override;
    int read(unsigned char* buffer, int length) override;
    // Moves forward without looking at the end.
    long ignore(long count) override;
    void close() override { handle_.close(); }
    int get_error() override { return error_; }
    file_handle& get_handle() { return handle_; }

  private:
    file_handle handle_;
    int error_ = 0;
};

class file_output_channel : public output_channel {
  public:
    // For init().
    file_output_channel() = default;
    // `append` 0 creates and truncates (new files 0600); else appends to a file that must be there.
    file_output_channel(const pathname& path, int append);
    explicit file_output_channel(const file_handle& handle) : handle_(handle) {}
    ~file_output_channel() override { close(); }
    int init(const pathname& path, int append, int create);
    void write(int byte) override;
    void write(const unsigned char* buffer, int length) override;
    // To the disk, unless the handle's synchronising is off.
    void flush() override;
    // Standard output and standard error are flushed and stay open.
    void close() override;
    int get_error() override { return error_; }
    int get_sync_data() override { return handle_.get_sync(); }
    void set_sync_data(int value) override { handle_.set_sync(value); }
    file_handle& get_handle() {
        is_flushed_ = false; // whoever asks may write
        return handle_;
    }

  private:
    void latch(int done);
    file_handle handle_;
    int error_ = 0;
    bool is_flushed_ = false; // coders flush what they end on, and channels what they are closed on
};

} // namespace km
