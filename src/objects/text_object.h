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

#include <string>
#include <sys/stat.h>

namespace km {

class text_object : public cm_object {
  public:
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
    // The text as people see it, without the path.
    virtual std::string shown() const = 0;

    const std::string& path_bytes() const;
    // Tells the temporary names of the commands of a package apart.
    void set_index(int index) { index_ = index; }
    // The remove is asked for by a definition: what stood there before goes, too.
    void set_asked_for(bool asked) { asked_for_ = asked; }
    // The package put the text there, or one that is gone did.
    bool is_own();
    // Drops the note of a text that does not stand any more. 1, or 0 with errno.
    int forget_if_gone();
    // "KIND of PATH is not there any more" for the package's messages.
    void tell_gone();

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
    // The section or the line around the text: its name for a note, "" for none.
    virtual std::string frame() const { return {}; }
    virtual bool frame_stands(const text_bytes&) const { return true; }
    // Takes an empty frame out.
    virtual void take_frame(text_bytes&) {}

    // The bytes of the file, quietly. False: it is not there, or cannot be edited.
    bool read_quietly(text_bytes& out) const;

  private:
    struct target {
        std::string path; // behind all links
        bool there = false;
        struct stat about {};
        int file = -1; // open, and locked where that can be
        target() = default;
        target(const target&) = delete;
        target& operator=(const target&) = delete;
        ~target();
    };
    bool resolve(target& at, int& error) const;
    // False with the reason; `error` 0 where the reason is no errno.
    bool open_target(target& at, text_bytes& out, int& error, std::string& reason) const;
    cm_result open_or_fail(target& at, text_bytes& out);
    cm_result edit();
    cm_result put(target& at, text_bytes& text);
    cm_result put_back(target& at, text_bytes& text);
    cm_result take(target& at, text_bytes& text);
    cm_result write(target& at, const std::string& bytes);
    cm_result write_temporary(int out, const target& at, const std::string& bytes,
                              const std::string& shown_name);
    cm_result give_attributes(int out, const target& at, const std::string& shown_name);
    cm_result unlink(const target& at);
    cm_result note(const std::string& key, const std::string& what);
    cm_result drop_note(const std::string& key);
    bool noted(const std::string& key, std::string* what = nullptr) const;
    cm_result note_frames(const target& at, const text_bytes& text);
    bool takes_file(const text_bytes& text) const;
    bool counted_by_others();
    bool comes_with_package() const;
    cm_result fail(const char* what, const std::string& of, int error);
    cm_result refuse(const std::string& of, const std::string& reason);
    bool well_formed() const;
    void drop_temporary();
    std::string temporary_name(const std::string& of) const;
    std::string key() const;

    mutable std::string bytes_;
    mutable ustring bytes_of_;
    int index_ = 0;
    bool asked_for_ = false;
    bool temporary_may_be_left_ = true;
};

} // namespace km
