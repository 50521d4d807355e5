// pair: key and value from one text
#pragma once

#include "ustring.h"

namespace km {

// A record of the form key=value.
//
// Coded form: the base's form, string field 100 key, string field 101 value.
class pair : public codable {
  public:
    static char16_t separator; // '='

    pair() = default;
    explicit pair(const ustring& text) { set_from(text); }
    pair(const ustring& key, const ustring& value) : key_(key), value_(value) {}

    // Splits at the first separator and strips spaces from both parts. Without one the key becomes
    // empty and the value the whole text, unstripped.
    void set_from(const ustring& text);
    // key=value, or the value alone if the key is empty.
    ustring to_string() const;

    const ustring& get_key() const { return key_; }
    const ustring& get_value() const { return value_; }
    void set_key(const ustring& key) { key_ = key; }
    void set_value(const ustring& value) { value_ = value; }

    codable* clone() const override { return new pair(*this); }
    bool operator==(const codable& other) const override;
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

  private:
    ustring key_;
    ustring value_;
};

} // namespace km
