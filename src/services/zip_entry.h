// zip_entry: one entry of a zip container
#pragma once

#include "codable.h"
#include "pathname.h"

#include <string>

namespace km {

// Facts of an entry. A number is -1 while it is unknown.
//
// Coded form, without the name: integer fields 300 version, 301 flag, 302 method, long fields 303
// time, 304 crc, 305 csize, 306 size, short field 307 extra_length, string field 308 (empty).
class zip_entry : public codable {
  public:
    static constexpr int stored = 0;
    static constexpr int deflated = 8;

    zip_entry() = default;
    // A name of 65536 bytes or more gives error 1.
    explicit zip_entry(const char* name);
    explicit zip_entry(const ustring& name) : zip_entry(name.mbcs_str()) {}
    explicit zip_entry(const pathname& name) : zip_entry(name.mbcs_str()) {}

    // Null while there is no name.
    const char* get_name() const { return has_name_ ? name_.c_str() : nullptr; }
    // As it stands, without conversion.
    void set_raw_name(const std::string& name);
    void clear_name();
    bool isDirectory() const { return has_name_ && !name_.empty() && name_.back() == '/'; }

    codable* clone() const override { return new zip_entry(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    long time = -1; // in the form of dostime()
    long crc = -1;
    long size = -1;
    int method = -1;
    std::string extra;
    std::string comment;
    int flag = 0;
    int version = 0; // needed to extract
    long csize = -1;
    long offset = -1; // of the local header
    int error = 0;

  private:
    std::string name_;
    bool has_name_ = false;
};

} // namespace km
