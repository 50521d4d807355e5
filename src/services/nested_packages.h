// nested_packages: packages nested in a package
#pragma once

#include "ustring.h"
#include "vector.h"

namespace km {

// Pairs of name and version, no pair twice when they come from a definition. A package that came
// from a definition lists itself first. In a package it is coded as the sequence of its pairs.
//
// Coded form of its own: iterator field 100 of pairs.
class nested_package_list : public vector {
  public:
    // Whether the list holds that pair.
    bool holds(const ustring& name, const ustring& version) const;

    codable* clone() const override { return new nested_package_list(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    // Blocks "package" with "name" and "version". Message 328 for a pair that is there already; a
    // block without "end" sets the importer's status to 0x20000.
    void import(importer& from) override;
    void export_(exporter& to) const override;
};

} // namespace km
