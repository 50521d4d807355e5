// ustring: the one text type
// format: docs/formats/coded-object.md
// invariant: a 0 always stands behind the text; the capacity is never below 16
#include "ustring.h"

#include "base/uxl.h"
#include "char_traits.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace km {

using traits = std::char_traits<char16_t>;

void ustring::init() {
    capacity_ = first_capacity;
    length_ = 0;
    buffer_ = small_;
    small_[0] = 0;
    cache_ = nullptr;
}

ustring::ustring() { init(); }

ustring::ustring(const ustring& other) : codable(other) {
    init();
    append(other.buffer_, other.length_);
}

ustring::ustring(ustring&& other) noexcept : codable(other) {
    init();
    take(other);
}

ustring::ustring(const ustring& other, size_type pos, size_type n) {
    init();
    append(other, pos, n);
}

ustring::ustring(const char16_t* wide) {
    init();
    append(wide);
}

ustring::ustring(const char16_t* wide, size_type n) {
    init();
    append(wide, n);
}

ustring::ustring(size_type n, char16_t c) {
    init();
    append(n, c);
}

ustring::ustring(const char* text) {
    init();
    assign(text);
}

ustring::~ustring() {
    if (buffer_ != small_)
        delete[] buffer_;
    delete[] cache_;
}

// Both are in the state of init() or have a buffer of their own; `other` ends empty.
void ustring::take(ustring& other) noexcept {
    if (other.buffer_ == other.small_) {
        traits::copy(small_, other.small_, other.length_ + 1);
    } else {
        buffer_ = other.buffer_;
        capacity_ = other.capacity_;
    }
    length_ = other.length_;
    other.buffer_ = other.small_;
    other.capacity_ = first_capacity;
    other.eos(0);
}

ustring& ustring::operator=(const ustring& other) { return assign(other); }

ustring& ustring::operator=(ustring&& other) noexcept {
    if (this != &other) {
        if (buffer_ != small_)
            delete[] buffer_;
        buffer_ = small_;
        capacity_ = first_capacity;
        take(other);
    }
    return *this;
}

void ustring::reserve(size_type n) {
    n = std::max(n, first_capacity);
    if (n <= capacity_)
        return;
    auto* bigger = new char16_t[static_cast<size_t>(n) + 1];
    traits::copy(bigger, buffer_, length_ + 1);
    if (buffer_ != small_)
        delete[] buffer_;
    buffer_ = bigger;
    capacity_ = n;
}

void ustring::grow(size_type wanted) {
    if (wanted > capacity_)
        reserve(std::max(wanted, capacity_ > npos / 2 ? wanted : capacity_ * 2));
}

void ustring::eos(size_type n) {
    length_ = n;
    buffer_[n] = 0;
}

ustring::size_type ustring::cut(size_type pos, size_type n) const {
    return std::min(n, length_ - pos);
}

void ustring::open(size_type at, size_type count, size_type n) {
    const size_type tail = length_ - at - count;
    grow(length_ - count + n);
    traits::move(buffer_ + at + n, buffer_ + at + count, tail);
    eos(length_ - count + n);
}

ustring& ustring::assign(const ustring& other) {
    if (this != &other) {
        eos(0);
        append(other.buffer_, other.length_);
    }
    return *this;
}

ustring& ustring::assign(const ustring& other, size_type pos, size_type n) {
    ustring part(other, pos, n);
    return *this = std::move(part);
}

ustring& ustring::assign(const char16_t* wide) {
    return assign(wide, static_cast<size_type>(uxl_wcslen(wide)));
}

ustring& ustring::assign(const char16_t* wide, size_type n) {
    if (holds(wide)) {
        ustring part(wide, n);
        return *this = std::move(part);
    }
    eos(0);
    return append(wide, n);
}

ustring& ustring::assign(size_type n, char16_t c) {
    eos(0);
    return append(n, c);
}

ustring& ustring::assign(const char* text) {
    return assign(text, static_cast<size_type>(std::strlen(text)));
}

ustring& ustring::assign(const char* text, size_type bytes) {
    // The text may be this object's own multi-byte form, which a change of the buffer leaves alone.
    const auto units = static_cast<size_type>(uxl_mbsntowcs(0, nullptr, text, bytes, 0));
    eos(0);
    reserve(units);
    uxl_mbsntowcs(0, buffer_, text, bytes, units);
    eos(units);
    return *this;
}

ustring& ustring::assign(size_type n, const char* one_char, size_type bytes) {
    char16_t units[2];
    eos(0);
    if (uxl_mbtowc(0, units, one_char, bytes) < 1)
        return *this;
    for (size_type i = 0; i < n; ++i)
        append(units, units[1] ? 2 : 1);
    return *this;
}

ustring& ustring::append(const ustring& other) { return append(other, 0, npos); }

ustring& ustring::append(const ustring& other, size_type pos, size_type n) {
    n = other.cut(pos, n);
    grow(length_ + n);
    traits::copy(buffer_ + length_, other.buffer_ + pos, n);
    eos(length_ + n);
    return *this;
}

ustring& ustring::append(const char16_t* wide) {
    return append(wide, static_cast<size_type>(uxl_wcslen(wide)));
}

ustring& ustring::append(const char16_t* wide, size_type n) {
    if (holds(wide) && length_ + n > capacity_) {
        ustring part(wide, n);
        return append(part);
    }
    grow(length_ + n);
    traits::move(buffer_ + length_, wide, n);
    eos(length_ + n);
    return *this;
}

ustring& ustring::append(size_type n, char16_t c) {
    grow(length_ + n);
    string_char_traits::assign(buffer_ + length_, n, c);
    eos(length_ + n);
    return *this;
}

ustring& ustring::operator+=(const char* text) { return append(ustring(text)); }

ustring& ustring::insert(size_type at, const ustring& other, size_type pos, size_type n) {
    return replace(at, 0, other, pos, n);
}

ustring& ustring::insert(size_type at, const char16_t* wide, size_type n) {
    return replace(at, 0, wide, n);
}

ustring& ustring::insert(size_type at, size_type n, char16_t c) { return replace(at, 0, n, c); }

ustring& ustring::remove(size_type pos, size_type n) {
    open(pos, cut(pos, n), 0);
    return *this;
}

ustring& ustring::replace(size_type at, size_type count, const ustring& other, size_type pos,
                          size_type n) {
    if (this == &other)
        return replace(at, count, ustring(other), pos, n);
    return replace(at, count, other.buffer_ + pos, other.cut(pos, n));
}

ustring& ustring::replace(size_type at, size_type count, const char16_t* wide, size_type n) {
    if (holds(wide))
        return replace(at, count, ustring(wide, n), 0, npos);
    open(at, cut(at, count), n);
    traits::copy(buffer_ + at, wide, n);
    return *this;
}

ustring& ustring::replace(size_type at, size_type count, size_type n, char16_t c) {
    open(at, cut(at, count), n);
    string_char_traits::assign(buffer_ + at, n, c);
    return *this;
}

ustring::size_type ustring::copy(char16_t* dest, size_type n, size_type pos) const {
    n = cut(pos, n);
    traits::copy(dest, buffer_ + pos, n);
    return n;
}

void ustring::resize(size_type n, char16_t c) {
    if (n > length_)
        append(n - length_, c);
    else
        eos(n);
}

ustring& ustring::strip(int type, char16_t c) {
    size_type first = 0, last = length_;
    if (type & leading)
        while (first < last && buffer_[first] == c)
            ++first;
    if (type & trailing)
        while (last > first && buffer_[last - 1] == c)
            --last;
    traits::move(buffer_, buffer_ + first, last - first);
    eos(last - first);
    return *this;
}

void ustring::to_upper(size_type pos, size_type n) {
    for (size_type end = pos + cut(pos, n); pos < end; ++pos)
        buffer_[pos] = uxl_towupper(buffer_[pos]);
}

void ustring::to_lower(size_type pos, size_type n) {
    for (size_type end = pos + cut(pos, n); pos < end; ++pos)
        buffer_[pos] = uxl_towlower(buffer_[pos]);
}

ustring& ustring::change(const ustring& from, const ustring& to) {
    if (from.empty())
        return *this;
    ustring out;
    size_type at = 0;
    for (size_type hit; (hit = find(from, at)) != npos; at = hit + from.length_) {
        out.append(*this, at, hit - at);
        out.append(to);
    }
    if (at) {
        out.append(*this, at, npos);
        *this = std::move(out);
    }
    return *this;
}

ustring& ustring::change(const char* from, const char* to) {
    return change(ustring(from), ustring(to));
}

int ustring::getline(FILE* file) {
    eos(0);
    int c = uxl_fgetwc(file);
    if (c < 0)
        return 0;
    for (; c >= 0 && c != '\n' && c != '\r'; c = uxl_fgetwc(file)) {
        if (length_ + 2 > capacity_)
            reserve(capacity_ * 2);
        if (c >= 0x10000)
            append(1, static_cast<char16_t>(0xD7C0 + (c >> 10)));
        append(1, static_cast<char16_t>(c >= 0x10000 ? 0xDC00 | (c & 0x3FF) : c));
    }
    if (c == '\r') {
        const int next = ::getc(file);
        if (next != '\n' && next != EOF)
            ::ungetc(next, file);
    }
    return 1;
}

namespace {
// As many of them as stand before the first 0, four at a time.
size_t units_before_0(const char16_t* units, size_t count) {
    constexpr std::uint64_t ones = 0x0001000100010001U, tops = 0x8000800080008000U;
    size_t at = 0;
    for (std::uint64_t four; at + 4 <= count; at += 4) {
        std::memcpy(&four, units + at, sizeof four);
        if ((four - ones) & ~four & tops)
            break;
    }
    while (at < count && units[at])
        ++at;
    return at;
}
} // namespace

const char* ustring::mbcs_str() const {
    const size_t units = units_before_0(buffer_, length_);
    const size_t bytes = uxl_wcsntombs(0, nullptr, buffer_, units, 0);
    char* text = new char[bytes + 1];
    uxl_wcsntombs(0, text, buffer_, units, bytes);
    text[bytes] = 0;
    delete[] cache_;
    return cache_ = text;
}

std::uint32_t ustring::hash_code() const {
    std::uint32_t h = 0;
    for (size_type i = 0; i < length_; ++i)
        h = (h << 1) ^ buffer_[i];
    return h;
}

codable* ustring::clone() const { return new ustring(*this); }

bool ustring::operator==(const ustring& other) const {
    return length_ == other.length_ &&
           std::memcmp(buffer_, other.buffer_, length_ * sizeof *buffer_) == 0;
}

bool ustring::operator==(const codable& other) const {
    const auto* text = dynamic_cast<const ustring*>(&other);
    return text && *this == *text;
}

} // namespace km
