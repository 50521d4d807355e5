// codable: base of every object that can be coded
#pragma once

#include <cstdint>

namespace km {

class encoder;
class decoder;
class importer;
class exporter;

// Base of every object that the system can write out and read back. Objects in coded containers
// are owned by pointer; `clone` is the way to copy one whose class is not known.
class codable {
  public:
    codable() = default;
    codable(const codable&) = default;
    codable& operator=(const codable&) = default;
    virtual ~codable();

    // Low 32 bits of the object's address: only classes that override it serve as keys of a
    // Hashtable.
    virtual std::uint32_t hash_code() const;
    // A new deep copy, the caller's.
    virtual codable* clone() const = 0;
    // True in the base. Overriding classes test the dynamic type first: stored keys come from
    // streams and may be of any class.
    virtual bool operator==(const codable& other) const;
    // Coded name of the class ("com.ombrel.sd.cmObjects.<name>"), null for classes that are never
    // coded. A static text.
    virtual const char* codable_name() const = 0;
    // Reads this object's fields and returns the object itself. The base reads integer field 0
    // into `version`. `stream_version` is the version that the stream tells of the class.
    virtual codable* decode_object(decoder& from, long stream_version);
    // Writes this object's fields. The base writes integer field 0 from `version`.
    virtual void encode_object(encoder& to) const;
    // Text form of a definition; told with the importer and the exporter.
    virtual void import(importer& from) = 0;
    virtual void export_(exporter& to) const = 0;
    virtual long codable_version() const;

    std::int32_t version = 1;
};

// Base for classes that stand in codable containers but are never coded themselves: gives the
// coding operations their empty bodies once.
template <class Base> class uncoded : public Base {
  public:
    using Base::Base;
    const char* codable_name() const override { return nullptr; }
    codable* decode_object(decoder&, long) override { return nullptr; }
    void encode_object(encoder&) const override {}
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }
};

} // namespace km
