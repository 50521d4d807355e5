// kept_file_object: a file whose local changes are kept
//
// Coded form behind that of km_file: boolean field 222 brings_back, string field 223 digest of what
// the undone package brought.
//
// What the package offered before is known from the profiles of its installed versions. Over a file
// that holds none of that, and not what is brought now, nothing is put: the user's version stays,
// ours is laid beside it as NAME.kmnew, and a message tells it. A file that holds what was offered
// before is replaced. What was offered already, and is offered again, is never put a second time:
// so a change by the user is no difference for a verify or a repair. A remove leaves a changed
// file, and takes NAME.kmnew away. There is no state beside the profile and the file itself, so a
// run after a kill decides as the first one did.
#pragma once

#include "file_object.h"

namespace km {

// Behind the name of a file: what a package brought, where the user's own version stays.
constexpr char kept_suffix[] = ".kmnew";

class km_kept_file : public km_file {
  public:
    codable* clone() const override { return new km_kept_file(*this); }
    const char* codable_name() const override;
    const char* kind() const override { return "kept file"; }
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    int is_identical(int phase) override;
    int is_newer() override { return 0; }
    cm_object* get_undo_object() override;
    cm_result delta_save(pathname* base, unzipping_channel* in, zipping_channel* out) override;

    // What stands there the user wrote: an install lays ours beside it, an undo leaves it.
    bool leaves_present();
    // The content that stands there is not the one that this package brings.
    bool is_changed();

    // This is the object of an undo: it brings back what stood there, unless the user changed what
    // the package had put.
    std::int32_t brings_back = 0;
    ustring undone_digest;

  protected:
    cm_result put(int phase) override;
    cm_result take() override;
    cm_result put_staged(int phase) override;

  private:
    std::string present_digest();
    std::string beside() const;
    bool was_offered(const std::string& what);
    bool is_settled();
    cm_result drop_beside();
    cm_result bring_back(int phase);
    cm_result lay_beside();
};

} // namespace km
