// http_stream: a package file that is read forward from a server
#pragma once

#include "bytes_ahead.h"
#include "net_settings.h"
#include "stream_channel.h"
#include "stream_digest.h"

#include <memory>
#include <string>

namespace kmhost {

// Whether a text names a file on a server: http://, https:// or file://.
bool is_address(const std::string& text);

// Why an address cannot be used; "" if it can. One with a user or a password in it cannot: it would
// stand in logs and notes.
std::string fault_of_address(const std::string& address);

// By what a server tells one file from another under the same name. Members that it does not tell
// are empty, or -1.
struct source_identity {
    std::string etag;
    std::string modified; // as the server writes it
    long size = -1;
};

// "" if both can be the same file; else what differs.
std::string difference(const source_identity& old, const source_identity& now);

// Why a stream ended early.
enum class net_fault {
    none,
    lost,    // the line or the server failed: later it may be better
    missing, // there is no such file
    refused, // the server, or what it answers, cannot be used; trying again does not help
    changed, // another file than the one that the first part came from
    stopped  // this process was asked to stop
};

// The bytes of a file in their order. Where the line breaks the stream is taken up again at the
// very byte, a few times at once; what cannot be mended makes get_error() 12 and fault() tell why.
// Memory is bounded, whatever the server sends. Data arrive inside of calls only.
class http_stream : public km::net_stream_input_channel, public km::bytes_ahead {
  public:
    http_stream(const std::string& address, const net_settings& settings);
    ~http_stream() override;
    http_stream(const http_stream&) = delete;
    http_stream& operator=(const http_stream&) = delete;

    // Before the first read: the file that is meant; another one is refused.
    void expect(const source_identity& identity);
    void change_offset(long offset) override;
    // Every byte that is handed out goes there too; lent.
    void set_digest(stream_digest* digest);
    // Asks the server and waits for its answer. False: get_error() is 12.
    bool open();

    using km::net_stream_input_channel::read;
    // Blocks until something came; -1 at the end and on failure.
    int read(unsigned char* buffer, int length) override;
    void force_close() override;
    void free_buffer() override;

    // What came and was not read yet, and a little of what was read last.
    long copy(long offset, unsigned char* to, long length) override;
    long end() override;
    void set_listener(listener* one) override;

    const source_identity& identity() const;
    long position() const; // of the next byte
    long fetched() const;  // bytes that came over the line, with those passed over
    long connections() const;
    net_fault fault() const;
    const std::string& reason() const; // a clause for people

  private:
    struct transfer;
    std::unique_ptr<transfer> at_;
};

} // namespace kmhost
