// directory_object: a directory
#pragma once

#include "km_object.h"

namespace km {

class km_directory : public km_object {
  public:
    codable* clone() const override { return new km_directory(*this); }
    const char* codable_name() const override;
    const char* kind() const override { return "directory"; }
    bool is_same_kind(const struct stat& about) const override { return S_ISDIR(about.st_mode); }

    int is_newer() override { return 0; }
    cm_result load(int load) override;

    // Counts as different in any case: an upgrade wants its time in the backup. Not coded.
    bool always_put = false;

    // The remove is asked for by a definition: one that the package did not make goes, too, if it is
    // empty.
    void set_asked_for(bool asked) { asked_for_ = asked; }

  protected:
    bool is_stageable() const override { return false; }
    bool stands_as_described(const std::string& at, bool with_rights) override;
    cm_result put(int phase) override;
    cm_result take() override;
    cm_result finish_add() override;
    cm_result check_target(const place& where, const struct stat* present) override;

  private:
    bool is_own() const;
    cm_result give_rights();

    bool asked_for_ = false;
    bool was_put_ = false;
};

} // namespace km
