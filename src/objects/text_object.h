// text_object: something that stands in a text file of somebody else
//
// What lines, tokens and INI items have in common. The file is replaced whole (temporary name,
// flush, rename), with its owner, mode and extended attributes; a symbolic link is followed inside
// the target root and its target edited. Only what the package put there is taken out again: a note
// says so, written before the file is (docs/formats/made-directories.md), and `former` repeats it.
// A file of more than 64 MiB, one with a NUL and one that is none are refused. While somebody holds
// a lock on the file, or changes it meanwhile, the edit fails as temporary.
//
// Coded form behind that of cm_object: string field 200 path, boolean fields 201 create, 202
// absent, 203 restores, string field 204 former (empty: not put there by the package; "+": it was
// not there; "=" and a carried text: it took the place of that), boolean fields 205 created (the
// file was made by the package), 206 made (so was the section, or the line, around it).
#pragma once

#include "object.h"
#include "text_bytes.h"
#include "text_target.h"

#include <set>
#include <string>

namespace km {

class text_object : public cm_object {
  public:
    text_object();
    text_object(const text_object& other);
    text_object& operator=(const text_object&) = default;
    ~text_object() override;
    // All that there are.
    static const std::set<text_object*>& living();

    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    long codable_version() const override { return 1; }
    // Keys "path" and, of an addition, "create".
    void import(importer& from) override;
    void export_(exporter& to) const override;

    cm_result check_add(int phase) override;
    cm_result check_remove(int phase) override;
    cm_result add(int phase) override;
    cm_result remove(int phase) override;
    // The file is there.
    int exists(int phase) override;
    // The text stands in the file; of an `absent` object: it does not.
    int is_identical(int phase) override;
    cm_result can_read() override;
    // The state of now: the text where it stands, or its absence.
    cm_object* get_undo_object() override;
    // Sharing key: path, kind and text.
    ustring get_name() override;
    ustring get_log(int action) override;

    // In words: "line", "token", "item".
    virtual const char* kind() const = 0;
    // The text, for a key that stays the same; what people see of it.
    virtual std::string name_of_text() const = 0;
    virtual std::string shown() const { return name_of_text(); }

    // It may take the place of something, so that exists() tells of that and not of the file.
    virtual bool may_replace() const { return false; }

    const std::string& path_bytes() const;
    // Tells the temporary names of the commands of a package apart.
    void set_index(int index) { index_ = index; }
    // The remove is asked for by a definition: what stood there before goes, too.
    void set_asked_for(bool asked) { asked_for_ = asked; }
    // A removal takes what stands in the place of the text, too.
    void set_takes_changed(bool takes) { takes_changed_ = takes; }
    // The package put the text there, or one that is gone did.
    bool is_own();
    // Takes what the notes tell into the fields, for a copy that another package carries.
    void settle();
    // An older version's text is this one, or is replaced by it, which is to bring back what that
    // one replaced. False: it stands elsewhere, or was not put there by the package.
    bool takes_place_of(text_object& old);
    // Drops the note of a text that does not stand any more. 1, or 0 with errno.
    int forget_if_gone();
    // Tells the package's messages that the text does not stand any more.
    void tell_gone();
    // Takes a text that is_own() out of a copy of the file; then what the package made around it,
    // where that is empty.
    void take_out_own(text_bytes& in);
    void take_out_own_frame(text_bytes& in);
    // The bytes of the file, quietly. False: it is not there, or cannot be edited.
    bool read_quietly(text_bytes& out) const;

    ustring path;
    std::int32_t create = 0;   // a file that is missing is made
    std::int32_t absent = 0;   // describes that the text does not stand
    std::int32_t restores = 0; // describes a former state: putting it in place is no own work
    ustring former;
    std::int32_t created = 0;
    std::int32_t made = 0;

  protected:
    // Why the definition cannot be carried out; empty: it can.
    virtual std::string fault() const = 0;
    virtual bool stands(const text_bytes& in) const = 0;
    // Puts the text in place. `replaced` takes what went for it, "+" where nothing did.
    virtual void put_into(text_bytes& in, std::string& replaced) = 0;
    // Takes the text out; `was` is what put_into told, "" where it is not known. False: it does not
    // stand.
    virtual bool take_out(text_bytes& in, const std::string& was) = 0;
    // Fills a copy of this object with the place and the form in which the text stands.
    virtual void remember(const text_bytes& in, text_object& copy) const = 0;
    // Texts of one slot take each other's place.
    virtual std::string slot() const { return kind() + name_of_text(); }
    // The section or the line around the text: its name for a note, "" for none.
    virtual std::string frame() const { return {}; }
    virtual bool frame_stands(const text_bytes&) const { return true; }
    // Takes an empty frame out.
    virtual void take_frame(text_bytes&) {}

    bool is_asked_for() const { return asked_for_; }
    bool takes_changed() const { return takes_changed_; }
    // Putting this former state in place would take the package's own text out.
    virtual bool takes_own_out(const text_bytes&) const { return absent; }

  private:
    cm_result work(int phase, bool puts);
    cm_result edit(bool puts);
    cm_result put(text_target& at, text_bytes& text);
    cm_result put_back(text_target& at, text_bytes& text);
    cm_result take(text_target& at, text_bytes& text);
    // Takes the text out, and with it what was made around it and is empty now.
    cm_result take_all(text_target& at, text_bytes& text);
    cm_result write(text_target& at, const text_bytes& text);
    cm_result check_file(text_target& at, long more);
    cm_result check_missing(text_target& at);
    bool comes_with_package(const std::string& path) const;
    cm_result remove_parents(const std::string& of);
    bool counted_by_others();

    bool noted(const std::string& of, std::string* what = nullptr) const;
    cm_result note(const std::string& of, const std::string& what);
    cm_result drop_note(const std::string& of);
    std::string what_it_replaced() const;
    bool has_own_frame() const;
    cm_result note_own_surroundings();
    cm_result note_surroundings(const text_target& at, const text_bytes& text);
    std::string key() const;
    std::string key_of_file() const { return path_bytes() + ": file"; }
    std::string key_of_frame() const { return path_bytes() + ": " + frame(); }

    cm_result fail(const text_fault& fault);
    cm_result fail(const char* what, const std::string& of, int error);
    cm_result refuse_definition();
    void tell_of(long message);
    bool well_formed() const;
    bool rolls_back() const;
    void drop_temporary();

    mutable std::string bytes_;
    mutable ustring bytes_of_;
    int index_ = 0;
    bool asked_for_ = false;
    bool takes_changed_ = false;
    bool temporary_may_be_left_ = true;
};

} // namespace km
