// channel: abstract byte channels
//
// A channel neither throws nor returns a status from write: a failure is latched and fetched with
// get_error(), which no call clears. A read gives -1 at the end of the data and on failure alike;
// get_error() tells which (0: the end). A channel belongs to one thread.
#pragma once

namespace km {

// Error codes of the channels of this library; file channels report the codes of file_handle.
enum channel_error : int {
    channel_good = 0,
    channel_no_inner = 1, // inner channel missing, output array cannot grow
    channel_no_memory = 2,
    channel_bad_call = 3,  // bad argument or bad state of the caller
    channel_disagree = 4,  // sizes or checksum of an entry, or a failed inner channel
    channel_too_large = 5, // the archive passed 2 GiB
    channel_no_source = 6,
    channel_fatal_read = 11,
    channel_network = 12,
    channel_corrupted = 14
};

class input_channel {
  public:
    virtual int read() = 0;
    // Bytes stored, at most `length`, or -1. A short count is no sign of the end.
    virtual int read(unsigned char* buffer, int length);
    // Bytes passed over, or -1. The base's body reports `count` whatever came.
    virtual long ignore(long count);
    virtual void close();
    virtual ~input_channel() = default;
    virtual int get_error() = 0;
    // 1: whoever holds this channel as its inner one leaves it alone, since somebody else owns it.
    // 0, the default, hands it over.
    virtual void inhibit(int value) { inhibit_ = value; }
    virtual bool is_to_be_deleted() const { return inhibit_ == 0; }

  private:
    int inhibit_ = 0;
};

class output_channel {
  public:
    virtual void write(int byte) = 0;
    virtual void write(const unsigned char* buffer, int length);
    virtual void flush() {}
    virtual void close() {}
    virtual int get_error() = 0;
    // Whether a flush reaches the disk.
    virtual int get_sync_data() { return 1; }
    virtual void set_sync_data(int) {}
    virtual ~output_channel() = default;
};

} // namespace km

#include "array_channel.h"
#include "file_channel.h"
#include "filter_channel.h"
