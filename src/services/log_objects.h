// log_objects: the log lines of a package
#pragma once

#include "pathname.h"

#include <cstdint>
#include <cstdio>

namespace km {

class cm_command;
class cm_package;

// The log of a package on this machine: one file per package in `location`, which only ever grows.
// A log that cannot be opened adds a message, and the operation goes on without lines.
//
// Coded form: string field 100 `location`, integer fields 101 `unix_group_id`, 102 `unix_user_id`,
// 103 `unix_attributes`.
class log_object_list : public codable {
  public:
    log_object_list() = default;
    log_object_list(const log_object_list& other);
    log_object_list& operator=(const log_object_list& other);
    ~log_object_list() override;

    // Opens the package's log and writes the header of the operation; a pass with the mask 2 writes
    // its header only with its first line. 1, or 0 with message 24 or 25.
    int log_package(cm_package* package);
    void log_header();
    // A line "[result]\ttext", if neither is empty. Always 1.
    int log_command(cm_command* command, int action, int phase);
    bool is_open_for(const cm_package* package) const { return stream_ && package_ == package; }

    codable* clone() const override { return new log_object_list(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;
    long codable_version() const override { return 1; }

    pathname location;
    std::int32_t unix_group_id = -1;
    std::int32_t unix_user_id = -1;
    std::uint32_t unix_attributes = 0;

  private:
    void close_stream();
    void prepare_rights(const pathname& path) const;

    std::FILE* stream_ = nullptr;
    int header_written_ = 0;
    cm_package* package_ = nullptr; // lent
};

// The options of a mode word in words, separated by " | "; empty for none.
ustring map_mode(long mode);

} // namespace km
