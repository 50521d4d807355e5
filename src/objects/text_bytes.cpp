// text_bytes: the bytes of a text file, edited by lines
// no format
// invariant: what was put in and is taken out again leaves the bytes of before
#include "text_bytes.h"

#include <cstdlib>
#include <utility>

namespace km {

namespace {
constexpr char mark_of_utf8[] = "\xEF\xBB\xBF";
constexpr char blanks[] = " \t";
} // namespace

text_bytes::text_bytes(std::string bytes) : all_(std::move(bytes)) {
    if (all_.compare(0, 3, mark_of_utf8) == 0)
        start_ = 3;
}

bool text_bytes::at(size_t at, line& out) const {
    if (at >= all_.size())
        return false;
    const size_t feed = all_.find('\n', at);
    out.begin = at;
    out.end = feed == std::string::npos ? all_.size() : feed;
    out.next = feed == std::string::npos ? all_.size() : feed + 1;
    if (feed != std::string::npos && out.end > at && all_[out.end - 1] == '\r')
        --out.end;
    return true;
}

bool text_bytes::before(size_t at, line& out) const {
    if (at <= start_)
        return false;
    // The line feed in front of `at` belongs to the line that is looked for.
    const size_t feed = at >= 2 ? all_.rfind('\n', at - 2) : std::string::npos;
    return this->at(feed == std::string::npos || feed < start_ ? start_ : feed + 1, out);
}

template <class Test> bool text_bytes::search(bool last, line& out, const Test& test) const {
    bool found = false;
    line one;
    for (size_t from = start_; at(from, one) && (last || !found); from = one.next)
        if (test(one)) {
            out = one;
            found = true;
        }
    return found;
}

bool text_bytes::find(const std::string& text, bool last, line& out) const {
    return search(last, out, [&](const line& one) {
        return one.end - one.begin == text.size() &&
               all_.compare(one.begin, text.size(), text) == 0;
    });
}

bool text_bytes::find_like(const ustring& pattern, bool last, line& out) const {
    return search(last, out, [&](const line& one) {
        size_t begin = one.begin, end = one.end;
        trim(all_, begin, end);
        ustring text;
        text.assign(all_.data() + begin, static_cast<ustring::size_type>(end - begin));
        return text.matches_pattern(pattern);
    });
}

text_bytes::line_place text_bytes::place_of(const line& of) const {
    line_place place{1, {}, {}};
    line one;
    if (before(of.begin, one))
        place.before = carried(text(one));
    if (at(of.next, one))
        place.behind = carried(text(one));
    for (size_t from = start_; at(from, one) && from < of.begin; from = one.next)
        ++place.number;
    return place;
}

// Of several places that fit alike the one nearest to the number counts.
size_t text_bytes::way_back(const line_place& stood, size_t from, size_t to) const {
    const std::string above = uncarried(stood.before), below = uncarried(stood.behind);
    int best_fit = -1;
    long best_distance = 0;
    size_t best = from;
    std::string line_above;
    line one;
    size_t here = start_;
    for (long number = 1;; ++number) {
        const bool more = at(here, one);
        const std::string line_below = more ? text(one) : "";
        const int fit = (line_above == above ? 2 : 0) + (line_below == below ? 1 : 0);
        const long distance = std::labs(number - stood.number);
        if (here >= from && here <= to &&
            (fit > best_fit || (fit == best_fit && distance < best_distance))) {
            best_fit = fit;
            best_distance = distance;
            best = here;
        }
        if (!more || here >= to)
            return best;
        line_above = line_below;
        here = one.next;
    }
}

// How the line at `at` ends, or the nearest one in front of it that ends.
std::string text_bytes::end_of_lines_at(size_t at) const {
    line one;
    if ((this->at(at, one) && one.next > one.end) || (before(at, one) && one.next > one.end))
        return all_.substr(one.end, one.next - one.end);
    return before(one.begin, one) ? all_.substr(one.end, one.next - one.end) : "\n";
}

void text_bytes::insert(size_t at, const std::string& text) {
    const std::string end = end_of_lines_at(at);
    const bool behind_all = at >= all_.size();
    if (behind_all && !empty() && all_.back() != '\n')
        all_ += end + text; // the last line goes on having no end
    else
        all_.insert(std::min(at, all_.size()), text + end);
}

void text_bytes::remove(const line& of) {
    size_t begin = of.begin;
    line one;
    if (of.next == of.end && before(begin, one))
        begin = one.end; // it had no end of its own
    all_.erase(begin, of.next - begin);
}

void text_bytes::replace(const line& of, const std::string& text) {
    replace_part(of.begin, of.end, text);
}

void text_bytes::replace_part(size_t begin, size_t end, const std::string& text) {
    all_.replace(begin, end - begin, text);
}

void trim(const std::string& all, size_t& begin, size_t& end) {
    const auto is_blank = [&](size_t at) { return all[at] == blanks[0] || all[at] == blanks[1]; };
    while (begin < end && is_blank(begin))
        ++begin;
    while (begin < end && is_blank(end - 1))
        --end;
}

std::string trimmed(const std::string& text) {
    size_t begin = 0, end = text.size();
    trim(text, begin, end);
    return text.substr(begin, end - begin);
}

ustring carried(const std::string& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && c != '%' && c != '$' && byte < 0x7F) {
            text += c;
            continue;
        }
        text += '%';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return ustring(text.c_str());
}

std::string uncarried(const ustring& text) {
    const std::string from = text.mbcs_str();
    const auto value = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    };
    std::string bytes;
    for (size_t i = 0; i < from.size(); ++i) {
        const int high = from[i] == '%' && i + 2 < from.size() ? value(from[i + 1]) : -1;
        const int low = high >= 0 ? value(from[i + 2]) : -1;
        bytes += low >= 0 ? static_cast<char>(high * 16 + low) : from[i];
        i += low >= 0 ? 2 : 0;
    }
    return bytes;
}

} // namespace km
