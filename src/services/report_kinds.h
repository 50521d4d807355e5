// report_kinds: reports with data of their own
#pragma once

#include "data_holders.h"
#include "pair.h"
#include "report.h"

namespace km {

// Carries the content of a file, or, as a pointer, its path alone. Decoding writes the content to a
// new file in the working directory ("BR" and six digits; a text file: each line ends in a line
// feed afterwards), which stays until the report is encoded again: that removes it, so it ends the
// use of this object. A failed decoding removes the file. A file that a pointer names is never
// removed.
//
// Coded form: the report's form, boolean field 201 is_bulk_pointer, string field 200: the path's
// text, or, with the flag 0, the lines of the file.
class bulk_report : public report {
  public:
    using report::report;
    codable* clone() const override { return new bulk_report(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    // Removes the file that the decoding of this report made.
    void encode_object(encoder& to) const override;
    void set_data(const pathname& path) override { path_ = path; }
    const pathname& get_data() const { return path_; }
    void set_bulk_pointer(int pointer) { is_bulk_pointer_ = pointer; }
    int is_bulk_pointer() const { return is_bulk_pointer_; }

  private:
    void read_data(decoder& from);

    pathname path_;
    int is_bulk_pointer_ = 0;
    int owns_data_ = 0; // decoding made the file
};

// Coded form: the report's form, string field 200 path.
class vfan2_report : public report {
  public:
    using report::report;
    codable* clone() const override { return new vfan2_report(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void set_data(const pathname& path) override { path_ = path; }
    const pathname& get_data() const { return path_; }

  private:
    pathname path_;
};

class dm_report : public report {
  public:
    using report::report;
    codable* clone() const override { return new dm_report(*this); }
    const char* codable_name() const override;
};

// Its opt_params are a device_data_holder.
class device_report : public report {
  public:
    using report::report;
    codable* clone() const override { return new device_report(*this); }
    const char* codable_name() const override;
    int add_fail_good_targets(void* failed, void* good) override;
    device_data_holder* get_data() const;
};

// Its opt_params are an inventory_data_holder, made at the first addition. A null argument adds
// nothing.
class inventory_report : public report {
  public:
    using report::report;
    codable* clone() const override { return new inventory_report(*this); }
    const char* codable_name() const override;
    // Another object than the holder in opt_params gives status 2.
    codable* decode_object(decoder& from, long stream_version) override;
    void add_hardware_id(const char* id);
    // Clones the pair.
    void add_sp_name_version(const pair* name_and_version);
    void add_operation(const char* operation);
    void set_action_type(int type);
    // Null before the first addition.
    inventory_data_holder* get_data() const;
};

// Its opt_params are a vfan2_db_data_holder, made at the first addition.
class vfan2_db_report : public report {
  public:
    using report::report;
    codable* clone() const override { return new vfan2_db_report(*this); }
    const char* codable_name() const override;
    // Another object than the holder in opt_params gives status 2.
    codable* decode_object(decoder& from, long stream_version) override;
    void add_target_by_oid(const ustring& oid);
    void add_target_by_name(const ustring& target);
    void add_error(const ustring& error);
    vfan2_db_data_holder* get_data() const;
};

} // namespace km
