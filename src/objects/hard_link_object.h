// hard_link_object: a second name of a file
//
// Coded form behind that of km_object: string field 220 the path of the file that it names, too,
// boolean field 221 restores.
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
    // 0 also while the package is about to replace the file: then the name follows.
    int is_identical(int phase) override;
    // Where both names lead to one file now, a link of the same kind: that file is not saved twice.
    cm_object* get_undo_object() override;
    ustring get_log(int action) override;

    ustring target; // absolute
    // The object of an undo, which walks the other way round: the file comes back behind its name,
    // so the name is looked at again when everything stands.
    std::int32_t restores = 0;

  protected:
    cm_result put(int phase) override;
    cm_result take() override;
    bool is_stageable() const override { return false; }
    bool stands_as_described(const std::string& at, bool with_rights) override;
    cm_result check_target(const place& where, const struct stat* present) override;
    cm_result finish_add() override;

  private:
    bool target_is_to_come() const;
    bool target_is_good() const;
};

} // namespace km
