// pathname: a path in its normal form
#pragma once

#include "ustring.h"

namespace km {

// A path with '/' as its only separator, without spaces at its ends and without a trailing
// separator ("/", "//" and "C:/" stay). Backslashes become '/', but not inside "$(" and ")", so
// that variable references keep theirs until they are resolved.
//
// Coded form: the base's form, then one string field with number 100.
class pathname : public codable {
  public:
    pathname() = default;
    pathname(const ustring& text);
    pathname(const char* text);
    pathname(const pathname& other) = default;
    pathname& operator=(const pathname& other) = default;
    pathname& operator=(const ustring& text);

    const ustring& get_text() const { return text_; }
    const char* mbcs_str() const { return text_.mbcs_str(); }

    // Appends s with exactly one separator between; with `trim` spaces at its ends go first. An
    // empty s changes nothing. A trailing separator of s stays.
    pathname& append(const ustring& s, int trim);
    pathname& operator+=(const ustring& s) { return append(s, 1); }
    // To the parent: "/a" gives "/", "a" gives an empty path; empty and root paths stay.
    pathname& operator--();
    pathname operator--(int);

    pathname get_parent() const;
    // What stands behind the last '/', or the whole path.
    ustring get_file() const;
    // The first component of a relative path with a '/', "/" for an absolute path, else the path.
    ustring get_root() const;
    ustring get_volume() const;
    // The whole path: there is no drive to remove.
    pathname get_dir() const { return *this; }
    // Below the current directory unless it starts with '/'; unchanged, with a fatal trace, if the
    // current directory cannot be told.
    pathname get_absolute_path() const;
    // Puts `base` in front of a relative path and removes "." and ".." components.
    void make_absolute(const pathname& base);
    // Strips '/' from both ends and turns every ':' into '_'.
    void make_relative();
    bool is_root() const;
    bool is_absolute() const { return text_[0] == u'/'; }
    bool is_valid() const { return !text_.empty(); }
    bool is_network() const { return false; }
    bool contains_wildcards() const;
    // True for the path itself and for what lies below `other`, by whole components.
    bool is_subpath_of(const pathname& other) const;
    // This path without what it shares with `second`, or without the length of `first`; see the
    // source. A null first changes nothing, a null second counts as empty.
    void remove_common_part(const pathname* first, const pathname* second);
    // Whether a component needs more than 8 characters, or more than 8.3 in the last one.
    bool is_long_format() const;
    // The last '.' of the last component and what follows, or empty.
    ustring get_extension() const;
    void remove_extension();
    // Appends '.' and the extension; nothing for an empty one. An existing one stays.
    void set_extension(const ustring& extension);
    // Replaces the extension; an empty one leaves a trailing dot.
    void change_extension(const ustring& extension);

    std::uint32_t hash_code() const override { return text_.hash_code(); }
    codable* clone() const override { return new pathname(*this); }
    bool operator==(const codable& other) const override;
    bool operator==(const pathname& other) const { return text_ == other.text_; }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;
    long codable_version() const override { return 1; }

  private:
    ustring text_;
};

inline pathname operator+(const pathname& path, const ustring& s) {
    pathname sum(path);
    sum += s;
    return sum;
}

// Brings a path's text into the normal form told at the class.
void fix_path(ustring& text);
// One pass over terminated text: '\\' becomes '/' outside "$(" and ")".
void convert_separators(char16_t* text);

extern "C" codable* make_pathname();

} // namespace km
