// http_answer: what a server answers, before any of the file
// no format
// invariant: bytes of another file, or of another place of it, are never taken for the wanted ones
#include "http_answer.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace kmhost {

namespace {

constexpr std::size_t longest_head = 1 << 17;

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A number without a sign; -1 for anything else.
long number_in(const std::string& text) {
    constexpr std::size_t most_digits = 18;
    if (text.empty() || text.size() > most_digits ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return -1;
    return std::strtol(text.c_str(), nullptr, 10);
}

enum status : long {
    ok = 200,
    partial = 206,
    unauthorized = 401,
    payment = 402,
    forbidden = 403,
    not_found = 404,
    proxy_login = 407,
    timeout = 408,
    gone = 410,
    bad_range = 416,
    too_early = 425,
    too_many = 429,
    server_fault = 500
};

net_fault fault_of_status(long code) {
    if (code == not_found || code == gone)
        return net_fault::missing;
    if (code == timeout || code == too_early || code == too_many || code >= server_fault)
        return net_fault::lost;
    return net_fault::refused;
}

std::string without_weakness(const std::string& etag) {
    return etag.compare(0, 2, "W/") == 0 ? etag.substr(2) : etag;
}

} // namespace

std::string difference(const source_identity& old, const source_identity& now) {
    if (old.size >= 0 && now.size >= 0 && old.size != now.size)
        return "it had " + std::to_string(old.size) + " bytes and has " + std::to_string(now.size);
    if (!old.etag.empty() && !now.etag.empty()) {
        if (without_weakness(old.etag) != without_weakness(now.etag))
            return "its mark was " + old.etag + " and is " + now.etag;
        return {};
    }
    if (!old.modified.empty() && !now.modified.empty() && old.modified != now.modified)
        return "it was of " + old.modified + " and is of " + now.modified;
    return {};
}

bool http_answer::take_line(const char* bytes, std::size_t count) {
    bytes_ += count;
    if (bytes_ > longest_head)
        return false;
    const std::string line = trimmed(std::string(bytes, count));
    if (line.compare(0, 5, "HTTP/") == 0) { // another answer: the one before led here
        const auto blank = line.find(' ');
        const std::size_t all = bytes_;
        *this = http_answer();
        bytes_ = all;
        status_text_ = blank == std::string::npos ? line : trimmed(line.substr(blank));
        return true;
    }
    const auto colon = line.find(':');
    if (colon == std::string::npos)
        return true;
    const std::string name = lowered(line.substr(0, colon)),
                      value = trimmed(line.substr(colon + 1));
    if (name == "etag")
        etag_ = value;
    else if (name == "last-modified")
        modified_ = value;
    else if (name == "content-range")
        range_ = lowered(value);
    else if (name == "content-encoding")
        encoding_ = lowered(value);
    else if (name == "content-length")
        length_ = number_in(value);
    return true;
}

// "bytes FIRST-LAST/TOTAL"
bool http_answer::read_range(long& first, long& total) const {
    const auto dash = range_.find('-'), slash = range_.find('/');
    if (range_.compare(0, 6, "bytes ") != 0 || dash == std::string::npos ||
        slash == std::string::npos || slash < dash)
        return false;
    first = number_in(trimmed(range_.substr(6, dash - 6)));
    total = number_in(trimmed(range_.substr(slash + 1)));
    return first >= 0;
}

source_identity http_answer::identity(long code) const {
    source_identity told{etag_, modified_, length_};
    long first = 0;
    if (code == partial && !read_range(first, told.size))
        told.size = -1;
    return told;
}

http_answer::verdict http_answer::judge(long code, long from,
                                        const source_identity& expected) const {
    if (code == bad_range && from > 0)
        return {net_fault::changed, "the file there does not reach to byte " + std::to_string(from),
                0};
    if (code != ok && code != partial)
        return {fault_of_status(code), "the server answered " + status_text_, 0};
    if (!encoding_.empty() && encoding_ != "identity")
        return {net_fault::refused,
                "the server sends the file recoded (" + encoding_ +
                    "), though it was asked for it as it is",
                0};
    if (const std::string what = difference(expected, identity(code)); !what.empty())
        return {net_fault::changed, what, 0};
    if (code == ok)
        return {net_fault::none, "", from};
    long first = 0, total = 0;
    if (!read_range(first, total) || first != from)
        return {net_fault::refused,
                "the server answered with another part of the file than was asked for", 0};
    return {};
}

} // namespace kmhost
