// ini_object: an item of an INI file
//
// Lines "[section]", "key = value", comments that begin with ';' or '#'. The last item of the key
// in all blocks of the section counts; an empty section is what stands before the first header. A
// comment behind a value (a blank, then ';' or '#') stays. What stood under the key comes back when
// ours goes; a section that was made for an item goes when it is empty again.
//
// Coded form behind that of text_object: string fields 220 section, 221 key, 222 value; of an undo:
// string field 223 the whole line, carried; only where it is known integer field 224 its number
// from 1, string fields 225 and 226 the lines before and behind it.
#pragma once

#include "text_object.h"

namespace km {

class km_ini_item : public text_object {
  public:
    codable* clone() const override { return new km_ini_item(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    // Keys "section", "key", "value".
    void import(importer& from) override;
    void export_(exporter& to) const override;
    // The key is there, with whatever value; of an `absent` object: the file is.
    int exists(int phase) override;
    bool may_replace() const override { return true; }

    const char* kind() const override { return "item"; }
    std::string name_of_text() const override;
    std::string shown() const override;

    ustring section;
    ustring key;
    ustring value;
    ustring whole;                // carried
    text_bytes::line_place stood; // of an undo

  protected:
    std::string fault() const override;
    bool stands(const text_bytes& in) const override;
    void put_into(text_bytes& in, std::string& replaced) override;
    bool take_out(text_bytes& in, const std::string& was) override;
    void remember(const text_bytes& in, text_object& copy) const override;
    std::string slot() const override;
    std::string frame() const override;
    bool frame_stands(const text_bytes& in) const override;
    void take_frame(text_bytes& in) override;

    bool takes_own_out(const text_bytes& in) const override;

  private:
    // What a walk over the file finds of the section and the key.
    struct found {
        bool has_section = false, has_item = false;
        text_bytes::line header;  // of the last block
        text_bytes::line item;    // the last one
        size_t begin = 0;         // behind the header of the last block
        size_t end = 0;           // behind the last line of the block that is not blank
        bool is_empty = true;     // the last block has blank lines alone
        std::string around = "="; // how the file writes '='
    };
    found look(const text_bytes& in) const;
    bool has_our_value(const text_bytes& in, const found& what) const;
    std::string new_line(const found& what) const;
    void give_value(text_bytes& in, const text_bytes::line& item) const;
};

} // namespace km
