// line_object: a line in a text file
//
// The line stands where a line of the file is `text`, byte for byte. Where it is put follows
// `position`; the places by pattern fall back on the start (before) or the end (after).
//
// Coded form behind that of text_object: string field 220 text, integer field 221 position, string
// field 222 pattern; of an undo: integer field 223 number of the line (from 1, 0: unknown), string
// fields 224 and 225 the lines before and behind it, 226 the line itself, all carried.
#pragma once

#include "text_object.h"

namespace km {

class km_line : public text_object {
  public:
    codable* clone() const override { return new km_line(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    // Keys "text", "position" (numbers of text_file::position), "pattern". A removal without a text
    // takes the line that matches the pattern.
    void import(importer& from) override;
    void export_(exporter& to) const override;

    const char* kind() const override { return "line"; }
    std::string name_of_text() const override;

    ustring text;
    std::int32_t position = 0;
    ustring pattern;
    text_bytes::line_place stood; // of an undo
    ustring whole;                // carried; of an undo that brings the line back

  protected:
    std::string fault() const override;
    bool stands(const text_bytes& in) const override;
    void put_into(text_bytes& in, std::string& replaced) override;
    bool take_out(text_bytes& in, const std::string& was) override;
    void remember(const text_bytes& in, text_object& copy) const override;

  private:
    std::string bytes_of_text() const;
    bool finds_by_pattern() const { return text.empty() && !stood.number; }
    bool find(const text_bytes& in, text_bytes::line& out) const;
    size_t place_in(const text_bytes& in) const;
};

} // namespace km
