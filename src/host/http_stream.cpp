// http_stream: a package file that is read forward from a server
// no format
// invariants: bytes are handed out in order and once; at most a few blocks are held; what a server
// says is compared with what it said before
#include "http_stream.h"

#include "curl_library.h"
#include "http_answer.h"
#include "stop_request.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <strings.h>
#include <sys/stat.h>
#include <vector>

namespace kmhost {

namespace {

using clock = std::chrono::steady_clock;

constexpr std::size_t most_held = 1 << 19;   // then the line waits
constexpr std::size_t few_held = 1 << 18;    // then the line is looked at beside the reading
constexpr long worth_a_look = 1 << 15;       // bytes that are read between two looks
constexpr std::size_t kept_behind = 1 << 16; // a reader of entries reads that far ahead of them
constexpr long block_of_line = 1 << 17;
constexpr long worth_a_new_start = 4096; // bytes; less is no progress
constexpr long longest_file = (1L << 32) + (1L << 17);
constexpr int poll_ms = 250;

// One part of an address, decoded; "" if there is none.
std::string part_of(const curl_library& curl, CURLU* url, CURLUPart part, unsigned flags = 0) {
    char* text = nullptr;
    if (curl.url_get(url, part, &text, flags) != CURLUE_OK || !text)
        return {};
    const std::string copy = text;
    curl.free(text);
    return copy;
}

struct address_parts {
    std::string scheme, host, path, user;
    bool good = false;
};

address_parts split(const curl_library& curl, const std::string& address) {
    address_parts all;
    CURLU* url = curl.url();
    if (url && curl.url_set(url, CURLUPART_URL, address.c_str(), 0) == CURLUE_OK) {
        all.scheme = part_of(curl, url, CURLUPART_SCHEME);
        all.host = part_of(curl, url, CURLUPART_HOST);
        all.user = part_of(curl, url, CURLUPART_USER) + part_of(curl, url, CURLUPART_PASSWORD);
        all.path = part_of(curl, url, CURLUPART_PATH, CURLU_URLDECODE);
        all.good = true;
    }
    curl.url_cleanup(url);
    return all;
}

net_fault fault_of(CURLcode code) {
    switch (code) {
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_CIPHER:
    case CURLE_LOGIN_DENIED:
    case CURLE_REMOTE_ACCESS_DENIED:
    case CURLE_OUT_OF_MEMORY:
        return net_fault::refused;
    case CURLE_FILE_COULDNT_READ_FILE:
        return net_fault::missing;
    case CURLE_BAD_DOWNLOAD_RESUME:
        return net_fault::changed;
    default:
        return net_fault::lost;
    }
}

std::string words_of(CURLcode code, const std::string& host, const std::string& detail) {
    const std::string more = detail.empty() ? "" : " (" + detail + ")";
    switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return "the name " + host + " cannot be resolved";
    case CURLE_COULDNT_RESOLVE_PROXY:
        return "the name of the proxy cannot be resolved";
    case CURLE_COULDNT_CONNECT:
        return "no connection to " + host + more;
    case CURLE_OPERATION_TIMEDOUT:
        return "the time for it is over" + more;
    case CURLE_TOO_MANY_REDIRECTS:
        return "the server leads from one address to the next without an end";
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
        return "the connection was cut" + more;
    case CURLE_PEER_FAILED_VERIFICATION:
        return "the certificate of " + host + " is not trusted" + more;
    case CURLE_SSL_CONNECT_ERROR:
        return "no safe connection to " + host + more;
    case CURLE_BAD_DOWNLOAD_RESUME:
        return "the file there is shorter than what was read of it";
    default:
        return "it cannot be read" + more;
    }
}

int close_on_exec(void*, curl_socket_t socket, curlsocktype) {
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
    return CURL_SOCKOPT_OK;
}

std::string time_text(std::time_t seconds) {
    char text[40] = "";
    std::tm utc{};
    if (::gmtime_r(&seconds, &utc))
        std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return text;
}

} // namespace

bool is_address(const std::string& text) {
    for (const char* head : {"http://", "https://", "file://"})
        if (::strncasecmp(text.c_str(), head, std::strlen(head)) == 0)
            return true;
    return false;
}

std::string fault_of_address(const std::string& address) {
    std::string why;
    const curl_library* curl = curl_library::get(why);
    if (!curl)
        return "libcurl cannot be loaded: " + why;
    for (const unsigned char c : address)
        if (c <= ' ' || c == 0x7f)
            return "an address holds no blanks and no control characters";
    const address_parts parts = split(*curl, address);
    if (!parts.good)
        return "it is no address of a file";
    if (!parts.user.empty())
        return "user and password do not belong in an address; the setting net_netrc_file names a "
               "file for them";
    return {};
}

struct http_stream::transfer {
    std::string address;
    net_settings settings;
    address_parts parts;
    const curl_library* curl = nullptr;
    CURLM* multi = nullptr;
    CURL* easy = nullptr;
    curl_slist* headers = nullptr;
    bool is_running = false;
    char detail[CURL_ERROR_SIZE] = "";

    http_answer answer;
    bool is_judged = false;
    long skip = 0;
    std::mutex lock; // of what another thread may look at: the next two and `position`
    std::vector<unsigned char> held;
    std::size_t held_at = 0; // of the next byte that is handed out
    km::bytes_ahead::listener* listener = nullptr;
    long read_since_look = 0;
    bool is_paused = false;
    bool has_ended = false;

    source_identity identity; // first what is expected, then what the server told
    long position = 0;        // of the next byte that is handed out
    long received = 0;        // of the next byte that the line brings
    stream_digest* digest = nullptr;

    long fetched = 0, connections = 0;
    long tries = 0;         // in a row, without progress
    long received_then = 0; // at the last start
    clock::duration window_waited{};
    long window_bytes = 0;
    std::atomic<bool> is_closed{false};

    net_fault fault = net_fault::none;
    std::string reason;

    transfer(const std::string& url, const net_settings& how) : address(url), settings(how) {}
    ~transfer() { drop(); }

    bool fail(net_fault with, const std::string& why);
    bool start();
    void set_options();
    void set_range();
    bool stat_file();
    void drop();
    bool judge();
    bool pump();
    bool wait();
    bool end_of_transfer(CURLcode code);
    bool take_up_again(net_fault with, const std::string& why);
    bool is_stalled(clock::duration waited);
    std::size_t take(const unsigned char* bytes, std::size_t count);
    void keep(const unsigned char* bytes, std::size_t count);
    void hand_out(unsigned char* to, std::size_t count);
    void go_on();
    void look_at_line();
    std::size_t available() const { return held.size() - held_at; }

    static std::size_t on_head(char* bytes, std::size_t one, std::size_t count, void* self);
    static std::size_t on_data(char* bytes, std::size_t one, std::size_t count, void* self);
    template <class value> void set(CURLoption option, value to) {
        curl->easy_setopt(easy, option, to);
    }
};

// The first failure is the one that counts.
bool http_stream::transfer::fail(net_fault with, const std::string& why) {
    if (fault == net_fault::none) {
        fault = with;
        reason = why;
    }
    return false;
}

void http_stream::transfer::drop() {
    if (!curl)
        return;
    if (multi && easy && is_running)
        curl->multi_remove_handle(multi, easy);
    if (easy)
        curl->easy_cleanup(easy);
    if (multi)
        curl->multi_cleanup(multi);
    curl->slist_free_all(headers);
    easy = nullptr;
    multi = nullptr;
    headers = nullptr;
    is_running = false;
}

std::size_t http_stream::transfer::on_head(char* bytes, std::size_t one, std::size_t count,
                                           void* self) {
    auto& at = *static_cast<transfer*>(self);
    if (at.answer.take_line(bytes, one * count))
        return one * count;
    at.fail(net_fault::refused, "the head of the server's answer does not end");
    return 0;
}

std::size_t http_stream::transfer::on_data(char* bytes, std::size_t one, std::size_t count,
                                           void* self) {
    return static_cast<transfer*>(self)->take(reinterpret_cast<unsigned char*>(bytes), one * count);
}

// What the line brought. All of it, or 0 to end the transfer.
std::size_t http_stream::transfer::take(const unsigned char* bytes, std::size_t count) {
    if (!is_judged && !judge())
        return 0;
    if (available() >= most_held) {
        is_paused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    const auto length = static_cast<long>(count);
    fetched += length;
    window_bytes += length;
    const long dropped = std::min(skip, length);
    skip -= dropped;
    keep(bytes + dropped, count - static_cast<std::size_t>(dropped));
    received += length - dropped;
    if (received <= (identity.size >= 0 ? identity.size : longest_file))
        return count;
    fail(net_fault::refused, "the server sends more than the file has");
    return 0;
}

void http_stream::transfer::keep(const unsigned char* bytes, std::size_t count) {
    {
        const std::lock_guard<std::mutex> locked(lock);
        if (held_at >= most_held || held_at == held.size()) {
            const std::size_t gone = held_at - std::min(held_at, kept_behind);
            held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(gone));
            held_at -= gone;
        }
        held.insert(held.end(), bytes, bytes + count);
    }
    if (listener && count)
        listener->bytes_came();
}

void http_stream::transfer::hand_out(unsigned char* to, std::size_t count) {
    const std::lock_guard<std::mutex> locked(lock);
    std::memcpy(to, held.data() + held_at, count);
    held_at += count;
    position += static_cast<long>(count);
}

bool http_stream::transfer::judge() {
    is_judged = true;
    if (parts.scheme == "file")
        return true;
    long code = 0;
    curl->easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &code);
    const auto verdict = answer.judge(code, received, identity);
    if (verdict.fault != net_fault::none)
        return fail(verdict.fault, verdict.reason);
    skip = verdict.skip;
    const source_identity told = answer.identity(code);
    if (identity.etag.empty())
        identity.etag = told.etag;
    if (identity.modified.empty())
        identity.modified = told.modified;
    if (identity.size < 0)
        identity.size = told.size;
    return true;
}

// Of a file of this machine nobody answers what it is.
bool http_stream::transfer::stat_file() {
    struct stat about {};
    if (::stat(parts.path.c_str(), &about) != 0)
        return fail(errno == ENOENT ? net_fault::missing : net_fault::refused,
                    std::strerror(errno));
    if (!S_ISREG(about.st_mode))
        return fail(net_fault::refused, "it is no regular file");
    source_identity now;
    now.modified = time_text(about.st_mtime);
    now.size = about.st_size;
    if (const std::string what = difference(identity, now); !what.empty())
        return fail(net_fault::changed, what);
    identity = now;
    return true;
}

void http_stream::transfer::set_options() {
    set(CURLOPT_URL, address.c_str());
    set(CURLOPT_ERRORBUFFER, detail);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    set(CURLOPT_HEADERFUNCTION, &transfer::on_head);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &transfer::on_data);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_BUFFERSIZE, block_of_line);
    set(CURLOPT_SOCKOPTFUNCTION, &close_on_exec);
    set(CURLOPT_USERAGENT, "kmctl");
    set(CURLOPT_FOLLOWLOCATION, settings.redirects ? 1L : 0L);
    set(CURLOPT_MAXREDIRS, settings.redirects);
    set(CURLOPT_PROTOCOLS_STR, "http,https,file");
    set(CURLOPT_REDIR_PROTOCOLS_STR, parts.scheme == "https" ? "https" : "http,https");
    set(CURLOPT_CONNECTTIMEOUT, settings.connect_timeout);
    set(CURLOPT_TIMEOUT, settings.total_timeout);
    if (!settings.proxy.empty())
        set(CURLOPT_PROXY, settings.proxy == "none" ? "" : settings.proxy.c_str());
    if (!settings.ca_file.empty())
        set(CURLOPT_CAINFO, settings.ca_file.c_str());
    if (!settings.client_cert.empty())
        set(CURLOPT_SSLCERT, settings.client_cert.c_str());
    if (!settings.client_key.empty())
        set(CURLOPT_SSLKEY, settings.client_key.c_str());
    if (!settings.netrc_file.empty()) {
        set(CURLOPT_NETRC, long{CURL_NETRC_OPTIONAL});
        set(CURLOPT_NETRC_FILE, settings.netrc_file.c_str());
    }
    headers = curl->slist_append(headers, "Accept-Encoding: identity");
    set_range();
    set(CURLOPT_HTTPHEADER, headers);
}

// The part from here on, if it is still the same file; a server may also send all of it.
void http_stream::transfer::set_range() {
    if (received == 0)
        return;
    if (parts.scheme == "file")
        set(CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(received));
    else // an answer with all of the file is as good
        set(CURLOPT_RANGE, (std::to_string(received) + "-").c_str());
    const bool is_strong = !identity.etag.empty() && identity.etag.compare(0, 2, "W/") != 0;
    const std::string& mark = is_strong ? identity.etag : identity.modified;
    if (!mark.empty() && parts.scheme != "file")
        headers = curl->slist_append(headers, ("If-Range: " + mark).c_str());
}

bool http_stream::transfer::start() {
    std::string why;
    curl = curl_library::get(why);
    if (!curl)
        return fail(net_fault::refused, "libcurl cannot be loaded: " + why);
    parts = split(*curl, address);
    drop();
    answer = http_answer();
    is_judged = false;
    skip = 0;
    detail[0] = '\0';
    received_then = received;
    if (parts.scheme == "file" && !stat_file())
        return false;
    if (identity.size >= 0 && received == identity.size) {
        has_ended = true;
        return true;
    }
    easy = curl->easy_init();
    multi = curl->multi_init();
    if (!easy || !multi)
        return fail(net_fault::refused, "no memory");
    set_options();
    is_running = curl->multi_add_handle(multi, easy) == CURLM_OK;
    is_paused = false;
    ++connections;
    window_waited = {};
    window_bytes = 0;
    return is_running || fail(net_fault::refused, "no memory");
}

// Too little came for too long; only the time that somebody waited for it counts.
bool http_stream::transfer::is_stalled(clock::duration waited) {
    window_waited += waited;
    const long limit = settings.stall_timeout + (is_judged ? 0 : settings.connect_timeout);
    if (window_waited < std::chrono::seconds(limit))
        return false;
    const bool too_little = window_bytes < settings.low_speed * limit;
    window_waited = {};
    window_bytes = 0;
    return too_little;
}

bool http_stream::transfer::wait() {
    const auto before = clock::now();
    curl->multi_poll(multi, nullptr, 0, poll_ms, nullptr);
    if (is_closed)
        return fail(net_fault::stopped, "the stream was closed");
    if (km::stop_requested())
        return fail(net_fault::stopped, "this run was asked to stop");
    if (is_stalled(clock::now() - before))
        return take_up_again(net_fault::lost, "next to no data came for " +
                                                  std::to_string(settings.stall_timeout) +
                                                  " seconds");
    return true;
}

// A few times at once; longer pauses, and what never began, are for whoever has time.
bool http_stream::transfer::take_up_again(net_fault with, const std::string& why) {
    if (received - received_then >= worth_a_new_start)
        tries = 0;
    if (with != net_fault::lost || fetched == 0 || tries >= settings.reconnects)
        return fail(with, why);
    ++tries;
    return start();
}

bool http_stream::transfer::end_of_transfer(CURLcode code) {
    curl->multi_remove_handle(multi, easy);
    is_running = false;
    if (code == CURLE_OK && !is_judged)
        judge();
    if (fault == net_fault::lost) { // found inside of a callback
        fault = net_fault::none;
        return take_up_again(net_fault::lost, std::string(reason));
    }
    if (fault != net_fault::none)
        return false;
    const bool is_whole = is_judged && identity.size >= 0 && received == identity.size;
    if (!is_whole && code != CURLE_OK)
        return take_up_again(fault_of(code), words_of(code, parts.host, detail));
    if (!is_whole && identity.size >= 0)
        return take_up_again(net_fault::lost, "the connection was cut (byte " +
                                                  std::to_string(received) + " of " +
                                                  std::to_string(identity.size) + ")");
    has_ended = true;
    return true;
}

void http_stream::transfer::go_on() {
    if (!is_paused)
        return;
    is_paused = false;
    curl->easy_pause(easy, CURLPAUSE_CONT);
}

// What came meanwhile is taken, so that the line is not idle while the reader works. Its end, or a
// failure, is for whoever needs what is missing.
void http_stream::transfer::look_at_line() {
    if (!is_running || has_ended || fault != net_fault::none || available() > few_held ||
        read_since_look < worth_a_look)
        return;
    read_since_look = 0;
    go_on();
    int running = 0;
    curl->multi_perform(multi, &running);
}

// Until something came, or the end.
bool http_stream::transfer::pump() {
    if (!is_running && !has_ended && !start())
        return false;
    while (available() == 0 && !has_ended) {
        go_on();
        int running = 0, left = 0;
        curl->multi_perform(multi, &running);
        if (available() != 0)
            return true;
        if (const CURLMsg* message = curl->multi_info_read(multi, &left);
            message && message->msg == CURLMSG_DONE) {
            if (!end_of_transfer(message->data.result))
                return false;
        } else if (!wait()) {
            return false;
        }
    }
    return true;
}

http_stream::http_stream(const std::string& address, const net_settings& settings)
    : at_(std::make_unique<transfer>(address, settings)) {}

http_stream::~http_stream() = default;

void http_stream::expect(const source_identity& identity) { at_->identity = identity; }
void http_stream::change_offset(long offset) { at_->position = at_->received = offset; }
void http_stream::set_digest(stream_digest* digest) { at_->digest = digest; }

bool http_stream::open() {
    if (!error_ && !at_->pump())
        error_ = km::channel_network;
    return error_ == 0;
}

int http_stream::read(unsigned char* buffer, int length) {
    if (error_)
        return -1;
    if (length < 1)
        return 0;
    if (at_->available() == 0 && !open())
        return -1;
    const std::size_t count = std::min(at_->available(), static_cast<std::size_t>(length));
    if (count == 0)
        return -1; // the end
    at_->hand_out(buffer, count);
    if (at_->digest)
        at_->digest->add(buffer, count);
    at_->read_since_look += static_cast<long>(count);
    at_->look_at_line();
    return static_cast<int>(count);
}

// The transfer itself goes with the object: another thread may be in the middle of it.
void http_stream::force_close() {
    at_->is_closed = true;
    if (at_->multi)
        at_->curl->multi_wakeup(at_->multi);
}

void http_stream::free_buffer() {
    const std::lock_guard<std::mutex> locked(at_->lock);
    std::vector<unsigned char>().swap(at_->held);
    at_->held_at = 0;
}

long http_stream::copy(long offset, unsigned char* to, long length) {
    const std::lock_guard<std::mutex> locked(at_->lock);
    const long first = at_->position - static_cast<long>(at_->held_at);
    const long behind_last = first + static_cast<long>(at_->held.size());
    if (offset < first)
        return -1;
    const long count = std::min(length, behind_last - offset);
    if (count < 1)
        return 0;
    std::memcpy(to, at_->held.data() + (offset - first), static_cast<std::size_t>(count));
    return count;
}

long http_stream::end() {
    const std::lock_guard<std::mutex> locked(at_->lock);
    return at_->position + static_cast<long>(at_->available());
}

void http_stream::set_listener(listener* one) { at_->listener = one; }

const source_identity& http_stream::identity() const { return at_->identity; }
long http_stream::position() const { return at_->position; }
long http_stream::fetched() const { return at_->fetched; }
long http_stream::connections() const { return at_->connections; }
net_fault http_stream::fault() const { return at_->fault; }
const std::string& http_stream::reason() const { return at_->reason; }

} // namespace kmhost
