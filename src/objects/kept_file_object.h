// kept_file_object: a file whose local changes are kept
//
// Coded form behind that of km_file: boolean field 222 brings_back, string field 223 digest of what
// the undone package brought; only where there was one object field 224, the KmFile of the
// NAME.kmnew that stood there before, with data of its own behind those of the file.
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

#include <functional>
#include <memory>

namespace km {

// Behind the name of a file: what a package brought, where the user's own version stays.
constexpr char kept_suffix[] = ".kmnew";

class km_kept_file : public km_file {
  public:
    km_kept_file() = default;
    km_kept_file(const km_kept_file& other);
    km_kept_file& operator=(const km_kept_file& other) = delete;
    codable* clone() const override { return new km_kept_file(*this); }
    const char* codable_name() const override;
    const char* kind() const override { return "kept file"; }
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    void set_package(cm_package* of) override;
    cm_result add(int phase) override;
    cm_result load(int load) override;
    using km_file::save;
    cm_result save(zipping_channel* out) override;
    cm_result save(unzipping_channel* in, zipping_channel* out) override;
    cm_result skip_data() override;
    int is_identical(int phase) override;
    int is_newer() override { return 0; }
    cm_object* get_undo_object() override;
    cm_result delta_save(pathname* base, unzipping_channel* in, zipping_channel* out) override;

    // The remove is asked for by a definition: it takes what any installed version brought.
    void set_asked_for(bool asked) { asked_for_ = asked; }

    // What stands there the user wrote: an install lays ours beside it, an undo leaves it.
    bool leaves_present();
    // The content that stands there is not the one that this package brings.
    bool is_changed();

    // This is the object of an undo: it brings back what stood there, unless the user changed what
    // the package had put.
    std::int32_t brings_back = 0;
    ustring undone_digest;
    // What lay beside it before, in an undo; null: nothing.
    std::unique_ptr<km_file> offered_before;

  protected:
    cm_result put(int phase) override;
    cm_result take() override;
    cm_result put_staged(int phase) override;

  private:
    std::string present_digest();
    std::string beside() const;
    bool was_offered(const std::string& what);
    bool is_settled();
    void remember_beside(km_kept_file& undo);
    cm_result then_beside(cm_result first, const std::function<cm_result(km_file&)>& next);
    cm_result drop_beside();
    cm_result bring_back(int phase);
    cm_result lay_beside();

    bool asked_for_ = false;
};

} // namespace km
