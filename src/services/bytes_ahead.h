// bytes_ahead: bytes of a stream that came before they are read
#pragma once

namespace km {

// What another thread may see of a stream that one thread reads. It takes nothing away: every byte
// is still read, in its order.
class bytes_ahead {
  public:
    // Who wants to know that bytes came; told in the reader's thread.
    class listener {
      public:
        virtual ~listener() = default;
        virtual void bytes_came() = 0;
    };

    virtual ~bytes_ahead() = default;
    // Copies bytes from that offset of the stream on, at most `length`, and says how many: 0 while
    // they have not come, -1 where they are gone. In any thread.
    virtual long copy(long offset, unsigned char* to, long length) = 0;
    // Offset behind the last byte that came. In any thread.
    virtual long end() = 0;
    // Lent; null for none.
    virtual void set_listener(listener* one) = 0;
};

} // namespace km
