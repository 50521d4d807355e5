// remote_call: one exchange with a server that ends by its time limit, whatever the server does
// no format
// invariant: nothing here waits behind the time limit
#include "remote_call.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sys/socket.h>
#include <unistd.h>

namespace kmhost {

namespace {

constexpr size_t longest_line = 300;

// What a server says goes into messages for people.
std::string printable(const char* bytes, size_t count) {
    std::string line(bytes, std::min(count, longest_line));
    while (!line.empty() && static_cast<unsigned char>(line.back()) <= ' ')
        line.pop_back();
    std::replace_if(
        line.begin(), line.end(),
        [](char one) { return static_cast<unsigned char>(one) < ' ' || one == '\x7F'; }, ' ');
    return line;
}

} // namespace

remote_call::remote_call(const std::string& url, const char* protocols,
                         std::chrono::milliseconds limit)
    : library_(curl_library::get(fault_)),
      handle_(library_ ? library_->easy_init() : nullptr, closer{library_}),
      limit_(std::max(limit, std::chrono::milliseconds(1))) {
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PROTOCOLS_STR, protocols);
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_ERRORBUFFER, error_);
    set(CURLOPT_HEADERFUNCTION, keep_line);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, drop_body);
    set(CURLOPT_OPENSOCKETFUNCTION, open_socket);
    set(CURLOPT_OPENSOCKETDATA, this);
    set_time_limits();
}

// The library's own limit ends a transfer, but neither its farewell nor a look-up of a name.
void remote_call::set_time_limits() {
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_TIMEOUT_MS, static_cast<long>(limit_.count()));
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limit_.count()));
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, watch_time);
    set(CURLOPT_XFERINFODATA, this);
}

void remote_call::set_lines(CURLoption option, const std::vector<std::string>& lines) {
    if (!handle_)
        return;
    curl_slist* list = nullptr;
    for (const auto& line : lines)
        list = library_->slist_append(list, line.c_str());
    lists_.push_back(list);
    set(option, list);
}

// Behind a success the farewell is said, but no answer is waited for.
remote_call::~remote_call() {
    for (auto* list : lists_)
        library_->slist_free_all(list);
    if (socket_ != CURL_SOCKET_BAD) {
        ::shutdown(socket_, SHUT_RD);
        ::close(socket_);
    }
}

void remote_call::trust(const std::string& ca_file) {
    if (!ca_file.empty()) {
        set(CURLOPT_CAINFO, ca_file.c_str());
        set(CURLOPT_CAPATH, static_cast<char*>(nullptr));
    }
}

void remote_call::log_in(const std::string& user, const std::string& password) {
    if (!user.empty()) {
        set(CURLOPT_USERNAME, user.c_str());
        set(CURLOPT_PASSWORD, password.c_str());
    }
}

bool remote_call::perform() {
    if (!handle_) {
        why_ = "the network library cannot be started" + (fault_.empty() ? "" : ": " + fault_);
        return false;
    }
    end_ = std::chrono::steady_clock::now() + limit_;
    const CURLcode done = library_->easy_perform(handle_.get());
    library_->easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &code_);
    if (done == CURLE_OK)
        return true;
    const bool late = done == CURLE_OPERATION_TIMEDOUT || done == CURLE_ABORTED_BY_CALLBACK;
    why_ = late ? "no end within " + std::to_string(limit_.count()) + " ms"
                : printable(*error_ ? error_ : library_->easy_strerror(done), CURL_ERROR_SIZE);
    return false;
}

size_t remote_call::keep_line(char* bytes, size_t size, size_t count, void* self) {
    auto& call = *static_cast<remote_call*>(self);
    const std::string line = printable(bytes, size * count);
    const bool is_answer = !line.empty() && (std::isdigit(static_cast<unsigned char>(line[0])) ||
                                             line.compare(0, 5, "HTTP/") == 0);
    const bool was_no = call.last_line_[0] == '4' || call.last_line_[0] == '5';
    if (is_answer && !(was_no && line[0] == '2')) // the farewell behind a "no" tells nothing
        call.last_line_ = line;
    return size * count;
}

size_t remote_call::drop_body(char*, size_t size, size_t count, void*) { return size * count; }

int remote_call::watch_time(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return std::chrono::steady_clock::now() >= static_cast<remote_call*>(self)->end_ ? 1 : 0;
}

// A second descriptor of the connection, so that it can be ended when the library holds it open.
curl_socket_t remote_call::open_socket(void* self, curlsocktype, curl_sockaddr* address) {
    auto& call = *static_cast<remote_call*>(self);
    const int made = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (made < 0)
        return CURL_SOCKET_BAD;
    if (call.socket_ != CURL_SOCKET_BAD)
        ::close(call.socket_);
    call.socket_ = ::fcntl(made, F_DUPFD_CLOEXEC, 0);
    return made;
}

bool read_secret(const std::string& file, std::string& secret) {
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    if (!std::getline(in, secret)) {
        errno = errno ? errno : ENODATA;
        return false;
    }
    const auto first = secret.find_first_not_of(" \t\r");
    const auto last = secret.find_last_not_of(" \t\r");
    secret = first == std::string::npos ? "" : secret.substr(first, last - first + 1);
    errno = secret.empty() ? ENODATA : 0;
    return !secret.empty();
}

} // namespace kmhost
