// values: numbers as codable objects
#pragma once

#include "codable.h"

namespace km {

// A signed number of 32 bits. Coded form: the base's form, then long field 100.
class long_value : public codable {
  public:
    explicit long_value(long value = 0) : value_(value) {}
    long get_value() const { return value_; }
    void set_value(long value) { value_ = value; }

    std::uint32_t hash_code() const override { return static_cast<std::uint32_t>(value_); }
    codable* clone() const override { return new long_value(*this); }
    bool operator==(const codable& other) const override;
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

  private:
    long value_;
};

// An unsigned number of 32 bits. Coded form: the base's form, then integer field 100.
class unsInt_value : public codable {
  public:
    explicit unsInt_value(std::uint32_t value = 0) : value_(value) {}
    std::uint32_t get_value() const { return value_; }
    void set_value(std::uint32_t value) { value_ = value; }

    std::uint32_t hash_code() const override { return value_; }
    codable* clone() const override { return new unsInt_value(*this); }
    bool operator==(const codable& other) const override;
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

  private:
    std::uint32_t value_;
};

} // namespace km
