// catalog: keys and entries of the packages on this machine
//
// A catalog is a Persistent_Hashtable that the host opens; the library knows no name of its file.
#pragma once

#include "pathname.h"

#include <cstdint>

namespace km {

// Identity of a package; its text form is name, "^", version.
//
// Coded form: string field 0 name, string field 1 version.
class cm_catalog_key : public codable {
  public:
    cm_catalog_key() = default;
    cm_catalog_key(const ustring& package_name, const ustring& package_version)
        : name(package_name), version(package_version) {}

    ustring get_text() const;
    // That of get_text().
    std::uint32_t hash_code() const override;
    codable* clone() const override { return new cm_catalog_key(*this); }
    bool operator==(const codable& other) const override;
    bool operator==(const cm_catalog_key& other) const;
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    ustring name;
    ustring version;
    int flag = 0; // copied, neither coded nor compared
};

// What is known of one package. The page of the format: docs/formats/catalog.md.
class cm_catalog_entry : public codable {
  public:
    // The status word, derived from the status fields.
    long get_dbstatus() const;
    bool is_hidden() const;
    bool is_discovered() const;
    void set_discovered(int discovered);
    void update_installed_filepack_time();

    codable* clone() const override { return new cm_catalog_entry(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    std::int32_t cm_status = 0;         // last stable status
    std::int32_t current_cm_status = 0; // status now
    std::int32_t last_action = 0;       // 1 install, 2 remove
    std::int32_t entry_mode = 0;        // mode word of the last operation
    std::int32_t operation_requested = 0;
    std::int32_t operation_in_progress = 0; // 14: none
    std::int32_t internal_package = 0;
    std::int32_t current_result = 0; // result that left the operation pending
    std::int32_t entry_operation_result = 0;
    std::int32_t backup_package = 0;
    std::int32_t backup_availability = 0;
    std::int32_t already_committed = 0;
    std::int32_t inverse_action = 0;
    pathname profile_name;
    pathname undo_package_name;
    ustring entry_text_1; // fields of other programs, carried along
    ustring entry_text_2;
    long installed_filepack_time = 0;
    long entry_time_2 = 0;
    long entry_uncoded = 0;
    ustring entry_text_3;
    std::int32_t call_argument = 0;
    std::int32_t call_mode = 0;
    ustring entry_text_4;
    std::int32_t status_at_start = 0;
    long db_status = 0; // only its four high bits live on
    std::int32_t entry_package_type = 0;
    std::int32_t entry_versioning_type = 0;
    ustring entry_dependency;
    std::int32_t entry_last_field = 0;
};

} // namespace km
