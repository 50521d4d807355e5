// unzipping_channel: forward-only reader of zip containers
#pragma once

#include "compressing_channel.h"
#include "crc.h"
#include "zip_entry.h"

namespace km {

// Reads the entries of a container in their order, from a channel that need not seek: local headers
// and descriptors alone lead through it. get_error() gives the status (1 no inner channel, 11 a
// fatal read, 14 corrupted), or the inner channel's error. Data of stored entries are not compared
// with their checksum: who needs that has a digest of his own. A source that has nothing for a
// moment must block in its read. The destructor reads the container to its end, unless
// set_skip_tail(0).
class unzipping_channel : public decompressing_channel {
  public:
    explicit unzipping_channel(input_channel* inner);
    ~unzipping_channel() override;

    // Passes over the rest of the open entry and reads the next header. The channel's own entry,
    // valid until the next call; null at the end (status 14: what follows is no header) and on
    // failure.
    zip_entry* get_next_entry();
    // The same for an entry without data: its descriptor is read too, and it is closed.
    zip_entry* get_next_directory_entry();
    // The open entry, or null.
    zip_entry* current_entry() { return entry_.get_name() ? &entry_ : nullptr; }
    // Whether data of the open entry were read.
    bool is_touched() const { return touched_; }
    // 1, or 0 with the status set.
    int close_entry();
    // Data of the entry; -1 at its end and on failure.
    int read() override;
    int read(unsigned char* buffer, int length) override;
    long ignore(long count) override;
    // The next entry to the path, or under its own name below the current directory: a name that is
    // empty, absolute or holds ".." is refused (status 3). 1 or 0.
    int extract_file();
    int extract_file(const pathname& path);
    // The open entry to the path, with its parents.
    int copy_file(const pathname& path);
    void close() override;
    int get_error() override;

    // Offset in the container: at the border of entries that of the next header; inside an entry
    // whose data are untouched that of its own header.
    long get_bytes_read() const { return current_untouched() ? header_offset_ : total_read_; }
    // For a reader that was opened at an offset.
    void set_bytes_read(long offset) { total_read_ = offset; }
    void set_skip_tail(int skip) { skip_tail_ = skip; }
    // Checksum of the entry that ended last.
    long get_last_crc() const { return last_crc_; }

  protected:
    int next_fill() const override;

  private:
    pushback_input_channel* source() const;
    bool current_untouched() const { return entry_.get_name() && !touched_; }
    int corrupted(const char* what);
    int cut_short(const char* what);
    int read_fully(unsigned char* buffer, long length);
    int readLOC();
    int read_name(int name_length, int extra_length);
    int readEXT();
    int read_end();
    void end_of_entry();
    int read_stored(unsigned char* buffer, int length);
    int read_deflated(unsigned char* buffer, int length);
    int end_of_deflated(int got);
    int take_ahead(unsigned char* buffer, int length);
    int pass_over_stored();
    void skipTAIL();
    int skipCEN(int have);
    int skipEND(int have);
    int skip_bytes(long count);

    zip_entry entry_;
    CRC32 crc_;
    long last_crc_ = 0;
    long remaining_ = 0;
    std::unique_ptr<unsigned char[]> scratch_;
    int status_ = 0;
    long total_read_ = 0;
    long header_offset_ = 0;
    bool touched_ = false;
    std::unique_ptr<unsigned char[]> ahead_; // inflated, not asked for yet
    int ahead_at_ = 0;
    int ahead_end_ = 0;
    int skip_tail_ = 1;
};

} // namespace km
