// zipping_channel: writer of zip containers
#pragma once

#include "compressing_channel.h"
#include "crc.h"
#include "deflated_entry.h"
#include "unzipping_channel.h"
#include "vector.h"
#include "zip_entry.h"

#include <memory>

namespace km {

// Writes a zip container that works as a forward-only stream: sizes and checksum of an entry follow
// in a descriptor behind its data, and the local header carries the true size of a stored entry.
// The central directory follows at the end. The inner channel is not closed. A failure is latched:
// get_error() gives the status, or the inner channel's error. An archive stops at 2 GiB (status 5).
// The page of the format: docs/formats/zip.md.
class zipping_channel : public compressing_channel {
  public:
    explicit zipping_channel(output_channel* inner);
    ~zipping_channel() override;

    // Lent, below 65536 bytes.
    void set_comment(const char* comment);
    void set_method(int method);
    void set_level(int level);
    int get_level() const { return level_; }
    // Closes the open entry and starts this one, which is taken over; null starts the one that
    // add() prepared. Time and size that are unknown are looked up under the entry's name: callers
    // preset them. 1 or 0.
    int put_next_entry(zip_entry* entry);
    using compressing_channel::write;
    void write(const unsigned char* buffer, int length) override;
    int close_entry();
    // The entry with data that were deflated elsewhere, at this channel's level: the container is
    // the same as if they had been written here. The entry is taken over. 1 or 0.
    int put_deflated_entry(zip_entry* entry, const deflated_data& data);
    // Entries that say nothing else are deflated, at the usual level.
    bool deflates_usually() const { return default_method_ == zip_entry::deflated && level_ == -1; }
    // Writes the directory, once. Without any entry nothing is written and the status is 4.
    int finish();
    void close() override { finish(); }
    // Adds a file or directory under `name` (null: the path); with `with_size` the size is that of
    // the file. The entry is left open; the next one or finish() closes it.
    int add(const pathname& path, int compress, const char* name, int with_size = 0);
    zip_entry* get_current_entry() const { return current_.get(); }
    int get_error() override { return status_ ? status_ : inner_->get_error(); }
    int get_status() const { return status_; }
    long get_written() const { return written_; }

  private:
    int fail(int status);
    int check_stored();
    void complete_from_file();
    int close_stored();
    int close_deflated();
    int end_entry();
    void note_deflated(long size, long csize, long crc);
    void write_bytes(const std::string& bytes);
    void writeLOC();
    void writeEXT();
    void writeCEN(const zip_entry& entry);
    void writeEND(long start);
    int copy_file(const pathname& path);

    std::unique_ptr<zip_entry> current_;
    CRC32 crc_;
    long written_ = 0;
    long data_start_ = 0;
    const char* comment_ = nullptr;
    int default_method_ = 0;
    int level_ = -1;
    vector entries_;
    int status_ = 0;
    int finished_ = 0;
};

} // namespace km
