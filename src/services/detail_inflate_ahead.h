// detail_inflate_ahead: what inflating ahead of a file and of a stream share
#pragma once

#include "background_thread.h"
#include "inflate_ahead.h"

#include <deque>

struct z_stream_s;

namespace km {

constexpr long largest_ahead = 1L << 20; // an entry that is larger is its reader's

struct entry_place {
    long offset = 0, csize = 0, size = 0;
    std::string name;
};

// A raw inflate stream that is used for one entry after the other.
class entry_inflater {
  public:
    entry_inflater();
    ~entry_inflater();
    entry_inflater(const entry_inflater&) = delete;
    entry_inflater& operator=(const entry_inflater&) = delete;
    bool good() const { return good_; }
    // False: it cannot be used.
    bool begin(unsigned char* to, long length);
    enum class step { ended, more, damaged };
    // `more`: all of the bytes were taken, and the entry does not end there.
    step put(const unsigned char* bytes, long count);
    long taken() const; // since `begin`
    long given() const;

  private:
    std::unique_ptr<z_stream_s> stream_;
    bool good_ = false;
};

// What both threads know. Operations are called locked, but for those that say otherwise.
struct inflate_ahead::shared {
    struct inflated {
        entry_place of;
        std::unique_ptr<entry_data> data; // null while the thread works on it
        bool worked;
    };

    std::string (*digest)(const std::string&) = nullptr;
    entry_work* work = nullptr;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t came = PTHREAD_COND_INITIALIZER;
    pthread_cond_t went = PTHREAD_COND_INITIALIZER;
    std::deque<inflated> ready; // in the order of the container
    long waiting = 0;           // bytes in `ready`
    long passed = -1;           // the reader has asked for everything up to this offset
    bool reader_waits = false;
    bool ends = false; // the owner goes
    bool runs = false;
    joined_thread thread;

    virtual ~shared() = default;
    // Inflates one entry; unlocks for that. False: there is none now.
    virtual bool inflate_next() = 0;
    // Nothing will come any more.
    virtual bool has_ended() const = 0;
    // Whether such an entry could be had; not locked.
    virtual bool is_wanted(long offset) const = 0;
    // Whether the reader is to wait for an entry that is not ready.
    virtual bool will_come(long offset) = 0;
    // The thread has ended, or never ran.
    virtual void give_up() = 0;

    void start(); // not locked
    void end();   // not locked; before anything of a subclass goes
    bool has_room() const;
    void hand_over(const entry_place& one, std::unique_ptr<entry_data> data);
    void wake_reader();
    void signal();                                               // not locked
    std::unique_ptr<entry_data> take(long offset, long& packed); // not locked

  private:
    void run();
    bool work_on_next();
    inflated* due();
    inflated* find(long offset);
    bool drop_up_to(long offset, std::unique_ptr<entry_data>& data, long& packed);
};

} // namespace km
