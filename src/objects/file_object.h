// file_object: a regular file
//
// Coded form behind that of km_object: string field 219 placed (only where it is known), boolean
// field 221 in_base.
#pragma once

#include "data_entry.h"
#include "file_attributes.h"
#include "km_object.h"
#include "read_ahead.h"

namespace km {

struct told_data;
class zip_entry;

class km_file : public km_object {
  public:
    codable* clone() const override { return new km_file(*this); }
    const char* codable_name() const override;
    const char* kind() const override { return "file"; }
    bool is_same_kind(const struct stat& about) const override { return S_ISREG(about.st_mode); }
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    // A delta package brings no data for this file: it must stand as the base package left it.
    std::int32_t in_base = 0;
    // Checksum of the data in the package that a delta is made from, -1 unknown; not coded.
    long data_crc = -1;
    // "inode seconds.nanoseconds" of the file as it was put in place here: while its inode and the
    // time of its last change are these nobody wrote to it since. Empty: not known.
    ustring placed;

    // When it was last asked, a file with these data and rights was there.
    bool stood_as_described = false;
    file_attributes attributes() const { return {mode, owner, group, modification_time()}; }

    // The data of the file that `about` tells of were read.
    bool has_read(const struct stat& about) const { return read_.is(about); }
    // This object is the state of a file that another one looked into.
    void take_what_was_read(const km_file& of) {
        read_ = of.read_;
        read_digest_ = of.read_digest_;
    }
    // `older` told of the file in the same place. If nobody wrote to it since, its data are known
    // without being read, for comparisons; whoever copies them reads them.
    void learn_from(km_file& older);
    // What stands there is no file with these data.
    bool has_other_content() { return !stands_as_described(path_bytes(), false); }
    // Behind load().
    told_data told() const;
    long get_size() override { return size; }
    int is_identical(int phase) override;
    // Looks at the source: size and digest are known before the tree is coded.
    cm_result load(int load) override;
    cm_result save(zipping_channel* out) override;
    cm_result save(unzipping_channel* in, zipping_channel* out) override;
    // Writes no data where the base package holds the same: the file must stand then.
    cm_result delta_save(pathname* base, unzipping_channel* in, zipping_channel* out) override;
    cm_result skip_data() override;

  protected:
    cm_result put(int phase) override;
    cm_result take() override;
    cm_result stage() override;
    bool is_stageable() const override { return !in_base; }
    cm_result take_from_base();
    bool stands_as_described(const std::string& at, bool with_rights) override;
    cm_result check_target(const place& where, const struct stat* present) override;
    // Writes the data to a file beside the target, which then takes the name `into`.
    cm_result bring(const std::string& into);
    cm_result pass_over_data(cm_result with);

  private:
    known_file read_;
    std::string read_digest_; // of the data of `read_`
    known_file seen_as_placed_;
    known_file learnt_;
    ustring learnt_digest_; // of the data of `learnt_`
    ino_t written_inode_ = 0;

    // Where the data come from: opens this file's entry.
    cm_result open_data(unzipping_channel*& in);
    cm_result write_ahead(unzipping_channel& in, const inflate_ahead::entry_data& data, int out,
                          const std::string& name);
    cm_result write_new(unzipping_channel& in, const place& where, bool is_taken,
                        std::string& name);
    bool place_nameless(const inflate_ahead::entry_data& data, const place& where, bool is_taken,
                        std::string& name);
    cm_result check_written(unzipping_channel& in, long written, const std::string& sum);
    cm_result write_from(unzipping_channel& in, int out, const std::string& name);
    cm_result write_temporary(unzipping_channel& in, const place& where, const std::string& name,
                              const inflate_ahead::entry_data* data);
    cm_result give_attributes(int descriptor, const std::string& name);
    bool has_no_data();
    int open_source();
    zip_entry* new_data_entry() const;
    void note_placed(const place& where);
    bool is_as_placed(const struct stat& about);
    bool differs_by_own_texts(const std::string& at) const;
    // Of the data of the file `at`, which `about` tells of. Empty, with errno: it cannot be read.
    std::string digest_at(const std::string& at, const struct stat& about);
};

} // namespace km
