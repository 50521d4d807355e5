// ustring: the one text type
#pragma once

#include "codable.h"

#include <cstddef>
#include <cstdio>
#include <string>

namespace km {

class vector;
class input_channel;
class output_channel;

// Text of 16-bit characters with value semantics: every copy copies the characters. A `const char*`
// handed in is text in the default code page, not raw bytes. Positions and counts are unsigned; a
// count of `npos` means up to the end, and a count that reaches past the end is cut to what is
// there. A search that finds nothing gives `npos`. Positions above the length are the caller's
// error and are not checked, except where it says so. Const operations but mbcs_str write nothing.
//
// Coded form: one string field with number 1.
class ustring : public codable {
  public:
    using size_type = unsigned;
    static constexpr size_type npos = ~0U;
    enum strip_type : int { leading = 1, trailing = 2, both = 3 };

    ustring();
    ustring(const ustring& other);
    ustring(ustring&& other) noexcept;
    ustring(const ustring& other, size_type pos, size_type n);
    ustring(const char16_t* wide);
    ustring(const char16_t* wide, size_type n);
    ustring(size_type n, char16_t c);
    ustring(const char* text);
    ~ustring() override;

    ustring& operator=(const ustring& other);
    ustring& operator=(ustring&& other) noexcept;
    ustring& operator=(const char* text) { return assign(text); }
    ustring& operator=(const char16_t* wide) { return assign(wide); }

    size_type length() const { return length_; }
    size_type capacity() const { return capacity_; }
    bool empty() const { return length_ == 0; }
    // Terminated; valid until the next change.
    const char16_t* c_str() const { return buffer_; }
    // 0 at the end and behind it.
    char16_t operator[](size_type pos) const { return pos < length_ ? buffer_[pos] : u'\0'; }

    ustring& assign(const ustring& other);
    ustring& assign(const ustring& other, size_type pos, size_type n);
    ustring& assign(const char16_t* wide);
    ustring& assign(const char16_t* wide, size_type n);
    ustring& assign(size_type n, char16_t c);
    ustring& assign(const char* text);
    // Exactly `bytes` bytes in the default code page.
    ustring& assign(const char* text, size_type bytes);
    // n copies of the one character that `one_char` holds in its `bytes` bytes.
    ustring& assign(size_type n, const char* one_char, size_type bytes);

    ustring& append(const ustring& other);
    ustring& append(const ustring& other, size_type pos, size_type n);
    ustring& append(const char16_t* wide);
    ustring& append(const char16_t* wide, size_type n);
    ustring& append(size_type n, char16_t c);
    ustring& operator+=(const ustring& other) { return append(other); }
    ustring& operator+=(const char16_t* wide) { return append(wide); }
    ustring& operator+=(char16_t c) { return append(1, c); }
    ustring& operator+=(const char* text);

    ustring& insert(size_type at, const ustring& other, size_type pos = 0, size_type n = npos);
    ustring& insert(size_type at, const char16_t* wide, size_type n);
    ustring& insert(size_type at, size_type n, char16_t c);
    ustring& remove(size_type pos = 0, size_type n = npos);
    ustring& replace(size_type at, size_type count, const ustring& other, size_type pos = 0,
                     size_type n = npos);
    ustring& replace(size_type at, size_type count, const char16_t* wide, size_type n);
    ustring& replace(size_type at, size_type count, size_type n, char16_t c);

    // Copies up to n characters from pos on, without a terminator; returns how many.
    size_type copy(char16_t* dest, size_type n, size_type pos = 0) const;
    ustring substr(size_type pos, size_type n = npos) const { return ustring(*this, pos, n); }
    // Pads with c, or cuts at n.
    void resize(size_type n, char16_t c = u'\0');
    // Room for exactly n characters (below 16 counts as 16); never shrinks. Appending grows in
    // larger steps.
    void reserve(size_type n);
    // Sets the length to n, at most the capacity, and writes the terminator there.
    void eos(size_type n);
    // The characters to be written to directly, followed by eos(); room for capacity() + 1.
    char16_t* data() { return buffer_; }
    ustring& strip(int type = both, char16_t c = u' ');
    void to_upper(size_type pos = 0, size_type n = npos);
    void to_lower(size_type pos = 0, size_type n = npos);
    // Replaces every occurrence of `from` (compared exactly), left to right; what was put in is not
    // searched again. An empty `from` changes nothing.
    ustring& change(const ustring& from, const ustring& to);
    ustring& change(const char* from, const char* to);

    // Searches; ignore_case not 0 folds case. An empty pattern is found at the length, by design of
    // the patterns that build on it. rfind cuts pos to the last place where the pattern fits.
    size_type find(const char16_t* s, size_type pos, size_type n, int ignore_case = 0) const;
    size_type find(const ustring& s, size_type pos = 0) const;
    size_type find(char16_t c, size_type pos = 0, int ignore_case = 0) const;
    size_type rfind(const char16_t* s, size_type pos, size_type n, int ignore_case = 0) const;
    size_type rfind(const ustring& s, size_type pos = npos) const;
    size_type rfind(char16_t c, size_type pos = npos, int ignore_case = 0) const;
    size_type find_first_of(const char16_t* set, size_type pos, size_type n,
                            int ignore_case = 0) const;
    size_type find_last_of(const char16_t* set, size_type pos, size_type n,
                           int ignore_case = 0) const;
    size_type find_first_not_of(const char16_t* set, size_type pos, size_type n,
                                int ignore_case = 0) const;
    size_type find_first_not_of(char16_t c, size_type pos = 0, int ignore_case = 0) const;
    size_type find_last_not_of(const char16_t* set, size_type pos, size_type n,
                               int ignore_case = 0) const;
    size_type find_last_not_of(char16_t c, size_type pos = npos, int ignore_case = 0) const;

    // Sign of the order of n characters from pos on against the other text. Only ignore_case 1
    // folds case. `opos` shortens the other text's count and does not move its start: callers pass
    // 0. The comparison stops at a 0 character.
    int compare(size_type pos, size_type n, const ustring& other, size_type opos, size_type on,
                int ignore_case) const;
    int compare(size_type pos, size_type n, const char16_t* wide, size_type wlen,
                int ignore_case) const;
    int compare(const ustring& other, int ignore_case = 0) const;

    // One forward pass without backtracking: '?' takes one character, '*' takes up to the first
    // occurrence of what follows it. A pattern that ends in "*.*" counts as ending in '*'.
    bool matches_pattern(const ustring& pattern, int ignore_case = 0) const;

    // One line of a file without its end (LF, CR or both); 0 only at the end of the file.
    int getline(FILE* file);

    // The text in the default code page, valid until the next call on this object or its end.
    const char* mbcs_str() const;

    // The coded form of a text: a count of bytes (two bytes, or FF FF FF and four from 65536 on),
    // then a modified UTF-8 in which every character stands by itself and 0 is C0 80. 1.
    int writeUTF(output_channel& to) const;
    // 0 if the stream ends early or holds no such text; grows only with what came.
    int readUTF(input_channel& from);

    // h = 2h XOR character: stored tables depend on it.
    std::uint32_t hash_code() const override;
    codable* clone() const override;
    // By length and characters; an object of another class is never equal.
    bool operator==(const codable& other) const override;
    bool operator==(const ustring& other) const;
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;
    long codable_version() const override;

  private:
    static constexpr size_type first_capacity = 16;
    void init();
    void grow(size_type wanted);
    size_type cut(size_type pos, size_type n) const;
    // Opens a gap of n characters at `at`, in the place of `count` characters.
    void open(size_type at, size_type count, size_type n);
    bool holds(const char16_t* p) const { return p >= buffer_ && p <= buffer_ + length_; }
    void take(ustring& other) noexcept;

    size_type capacity_;
    size_type length_;
    char16_t* buffer_;
    mutable char* cache_;
    char16_t small_[first_capacity + 1];
};

inline ustring operator+(const ustring& a, const ustring& b) {
    ustring sum(a);
    sum += b;
    return sum;
}

extern "C" codable* make_ustring();

} // namespace km
