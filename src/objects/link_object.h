// link_object: a symbolic link
//
// Coded form behind that of km_object: string field 220 the text of the link.
#pragma once

#include "km_object.h"

namespace km {

class km_link : public km_object {
  public:
    codable* clone() const override { return new km_link(*this); }
    const char* codable_name() const override;
    const char* kind() const override { return "link"; }
    bool is_same_kind(const struct stat& about) const override { return S_ISLNK(about.st_mode); }
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;

    cm_result load(int load) override;
    ustring get_log(int action) override;

    ustring target; // as it stands in the link

  protected:
    cm_result put(int phase) override;
    cm_result take() override;
    cm_result stage() override;
    bool stands_as_described(const std::string& at, bool with_rights) override;
    cm_result check_target(const place& where, const struct stat* present) override;
    // Paths through the link lead elsewhere now.
    void was_placed() override { forget_directories(); }

  private:
    cm_result make(const place& where, const std::string& shown);
};

} // namespace km
