// persistent_hashtable: map kept in a file, slot by slot
//
// The file is a log of coded keys and values; the map in memory is rebuilt by reading it. A change
// appends a slot, or flips a status word in place, and commits it with one write of two bytes, so
// that a crash at any point leaves at most one uncommitted slot at the end, which the next one
// overwrites. The page of the format: docs/formats/persistent-table.md.
#pragma once

#include "channel.h"
#include "fileio.h"
#include "hashtable.h"
#include "lockfile.h"

#include <memory>

namespace km {

class Persistent_Hashtable : public Hashtable {
  public:
    enum error : int {
        seek_error = 1,
        corrupted = 2,
        write_error = 5, // also: a slot would end above 2 GiB
        cannot_open = 15,
        cannot_lock = 16
    };
    enum file_state : std::uint16_t { normal = 0xAAAA, copying = 0xBBBB, copied = 0xCCCC };

    Persistent_Hashtable();
    // Opens or creates the file and loads it. With `lock` not 0 it is locked against other
    // processes for the life of the table. With `no_sync` not 0 a crash may lose the file. With a
    // copy target (lent) the live slots go to a new, compact table of that name too. A failure is
    // told by get_table_error(): from then on every change is refused.
    Persistent_Hashtable(const pathname& file_name, int lock, int no_sync, pathname* copy_target);
    // A table inside an open file, whose header is written anew at the offset.
    Persistent_Hashtable(const file_handle& handle, long offset);
    Persistent_Hashtable(const Persistent_Hashtable& source);
    Persistent_Hashtable& operator=(const Persistent_Hashtable& source);
    ~Persistent_Hashtable() override;

    // Adds a new key. 1 and the table owns both. 0: the key is there, or it could not be written;
    // both stay the caller's, and the map is as it was.
    int put(codable* key, codable* value);
    int put(const codable&, const codable&) = delete;
    // Replaces or adds; takes both over in every case. They must not be the stored ones. 1 or 0.
    int update(codable* key, codable* value) override;
    // 1, also if the key was absent; 0 if it could not be written.
    int remove(const codable* key) override;
    int close();
    int load_table();
    // Rewrites the file without dead slots, beginning with the phase (copying or copied); `offset`
    // is where the copy stands or is to stand.
    int defragment(std::uint16_t phase, long offset);

    int get_table_error() const { return table_error_; }
    unsigned long get_free_size() const { return free_size_; }
    long get_current_offset() const { return current_offset_; }
    void set_free_threshold(unsigned long bytes) { free_threshold_ = bytes; }
    codable* clone() const override { return nullptr; }

    // Mends what a crash inside defragment() left, before the file is opened for writing; the
    // caller holds the lock. 1, also if there is nothing to mend or no file; 0 if it could not be
    // written.
    static int recover(const pathname& file_name);

  private:
    class log_reader;
    enum slot_result { slot_read, log_end, slot_failed };

    void open(const pathname& file_name, int no_sync);
    int fail(int error);
    int latch(int done);
    int check_file_header();
    int write_file_header(std::uint16_t state, long offset);
    int write_slot_header(long size, std::uint16_t status);
    int write_slot(const codable& key, const codable& value, std::uint32_t& size);
    int append(const codable& key, const codable& value, std::uint32_t& size);
    int commit();
    int cut_stale_tail();
    slot_result read_slot(log_reader& log, Persistent_Hashtable* copy);
    void take_slot(codable* key, codable* value, long start, long size, Persistent_Hashtable* copy);
    void take_copy(const Persistent_Hashtable& source);
    int first_phase(long offset);
    int second_phase(long offset);
    int reclaim();
    static bool copy_is_whole(const file_handle& handle, long offset);

    mutable file_handle handle_;
    long current_offset_ = 0;
    long base_offset_ = 0;
    std::uint16_t last_slot_mark_;
    int table_error_ = 0;
    pathname file_name_;
    std::uint16_t state_ = normal;
    long header_offset_ = 0;
    unsigned long free_size_ = 0;
    std::unique_ptr<semaphore> lock_;
    int sync_ = 1;
    unsigned long free_threshold_;
    pathname* copy_target_ = nullptr;
    bool stale_tail_ = false;
};

} // namespace km
