// remote_call: one exchange with a server that ends by its time limit, whatever the server does
//
// The limit counts from the call of `perform` to its end and holds for every stage: looking up the
// name, connecting, the handshake of TLS, each answer, and the farewell. No signal is used.
#pragma once

#include "curl_library.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace kmhost {

class remote_call {
  public:
    // `protocols` are the only ones that may be spoken ("http,https"). A limit below a millisecond
    // counts as one millisecond.
    remote_call(const std::string& url, const char* protocols, std::chrono::milliseconds limit);
    ~remote_call();
    remote_call(const remote_call&) = delete;
    remote_call& operator=(const remote_call&) = delete;

    // An option of the caller's own. Those of time, signals, error text and answer lines are taken.
    template <class value> void set(CURLoption option, value given) {
        if (handle_)
            library_->easy_setopt(handle_.get(), option, given);
    }
    // Lines that an option takes as a list; they stay as long as the call.
    void set_lines(CURLoption option, const std::vector<std::string>& lines);
    // Certificates are always checked: against this file, or for "" against the system's.
    void trust(const std::string& ca_file);
    void log_in(const std::string& user, const std::string& password);

    // Once only. False: `why` tells it.
    bool perform();
    // The code of the server's last answer; 0 if none came.
    long code() const { return code_; }
    // The server's last answer (its last line, or its status line of http), without control
    // characters.
    const std::string& last_line() const { return last_line_; }
    // A sentence without a full stop: what went wrong on the way; "" behind a success.
    const std::string& why() const { return why_; }

  private:
    struct closer {
        const curl_library* library = nullptr;
        void operator()(CURL* handle) const { library->easy_cleanup(handle); }
    };
    static size_t keep_line(char* bytes, size_t size, size_t count, void* self);
    static size_t drop_body(char* bytes, size_t size, size_t count, void* self);
    static int watch_time(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t);
    static curl_socket_t open_socket(void* self, curlsocktype, curl_sockaddr* address);
    void set_time_limits();

    std::string fault_; // why there is no library
    const curl_library* library_;
    std::unique_ptr<CURL, closer> handle_;
    std::vector<curl_slist*> lists_;
    std::chrono::milliseconds limit_;
    std::chrono::steady_clock::time_point end_;
    curl_socket_t socket_ = CURL_SOCKET_BAD;
    long code_ = 0;
    std::string last_line_;
    std::string why_;
    char error_[CURL_ERROR_SIZE] = "";
};

// The first line of a file (a password, a token), without the blanks at its ends. False, with
// errno: it cannot be read, or is empty (ENODATA).
bool read_secret(const std::string& file, std::string& secret);

} // namespace kmhost
