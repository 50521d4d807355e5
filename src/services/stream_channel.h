// stream_channel: frame of the stream on which a package arrives
#pragma once

#include "channel.h"

namespace km {

// What the engine asks of the stream on which a package arrives from the network. This class is
// the frame: its operations do nothing, and the host brings the class that does.
//
// A subclass delivers the bytes in order through read(buffer, length) and blocks inside it while
// the network is slow: -1 "for a moment" counts as the end everywhere. When the network fails for
// good it sets error_ to 12 and gives -1; the package's decoder then ends the process. It closes
// in its own destructor: the one here reaches only the empty close of the frame.
class net_stream_input_channel : public input_channel {
  public:
    ~net_stream_input_channel() override { net_stream_input_channel::close(); }
    // Through read(buffer, 1): -1 unless that gave one byte.
    int read() override;
    int read(unsigned char*, int) override { return 0; }
    // Reads and drops, in blocks of at most 64 KiB, until `count` bytes went or a read gives none.
    // How many went; -1 if the first read failed, or (error 2) there is no memory for a block.
    long ignore(long count) override;
    void close() override { force_close(); }
    int get_error() override { return error_; }

    // Gives the memory of the stream back.
    virtual void free_buffer() {}
    // The way back to the sender, for streams that have one. Bytes taken, 0 for none.
    virtual int begin_write() { return 0; }
    virtual int end_write() { return 0; }
    virtual int write(unsigned char*, int) { return 0; }
    // Tells the sender how far the receiver is; the text is lent.
    virtual void set_status(char*) {}
    // Ends the stream, also while another thread is inside a read, which then gives -1.
    virtual void force_close() {}
    // Before the first read: starts that many bytes into the stream.
    virtual void change_offset(long) {}
    void skip(long) {}

  protected:
    int error_ = 0;
};

} // namespace km
