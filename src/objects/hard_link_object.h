// hard_link_object: a second name of a file
//
// Coded form behind that of km_object: string field 220 the path of the file that it names, too.
// Keys "path" and "target". The file is one that the package brings, in front of this command, or
// that stands on the machine; it must be on the same file system. Mode, owner and time are those of
// the file. It is identical where both names lead to one inode. It cannot wait as a staged copy: a
// prepare checks it, the commit makes it.
#pragma once

#include "km_object.h"

namespace km {

class km_hard_link : public km_object {
  public:
    codable* clone() const override { return new km_hard_link(*this); }
    const char* codable_name() const override;
    const char* kind() const override { return "hard link"; }
    bool is_same_kind(const struct stat& about) const override { return S_ISREG(about.st_mode); }
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;

    int is_newer() override { return 0; }
    ustring get_log(int action) override;

    ustring target; // absolute

  protected:
    cm_result put(int phase) override;
    cm_result take() override;
    bool is_stageable() const override { return false; }
    bool stands_as_described(const std::string& at, bool with_rights) override;
    cm_result check_target(const place& where, const struct stat* present) override;

  private:
    bool target_is_good() const;
};

} // namespace km
