// token_object: a token in a command line of a text file
//
// The command is the first line that begins with `name`, blanks in front left out, and '=': what
// follows, up to a blank and '#' or inside a pair of quotes, is a list of tokens. Where no such
// line stands one is made at the end of the file, and goes with its last token.
//
// Coded form behind that of text_object: string fields 220 name, 221 token, 222 separator, integer
// field 223 position, string field 224 reference; of an undo: integer field 225 number of the token
// (from 1, 0: unknown), string fields 226 and 227 the tokens before and behind it, carried.
#pragma once

#include "text_object.h"

#include <vector>

namespace km {

class km_token : public text_object {
  public:
    codable* clone() const override { return new km_token(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    // Keys "name", "token", "separator" (one character, ':' by default), "position" (numbers of
    // text_file::position), "reference".
    void import(importer& from) override;
    void export_(exporter& to) const override;

    const char* kind() const override { return "token"; }
    std::string name_of_text() const override;

    ustring name;
    ustring token;
    ustring separator = u":";
    std::int32_t position = 0;
    ustring reference;
    std::int32_t number = 0;
    ustring before; // carried
    ustring behind; // carried

  protected:
    std::string fault() const override;
    bool stands(const text_bytes& in) const override;
    void put_into(text_bytes& in, std::string& replaced) override;
    bool take_out(text_bytes& in, const std::string& was) override;
    void remember(const text_bytes& in, text_object& copy) const override;
    std::string frame() const override;
    bool frame_stands(const text_bytes& in) const override;
    void take_frame(text_bytes& in) override;

  private:
    // The list of tokens, [begin, end).
    struct list {
        text_bytes::line line;
        size_t begin = 0, end = 0;
    };
    struct word {
        size_t begin = 0, end = 0; // with blanks
    };
    bool find_list(const text_bytes& in, list& out) const;
    std::vector<word> words_of(const text_bytes& in, const list& of) const;
    // Index of the token, -1 where it does not stand.
    long find(const text_bytes& in, const std::vector<word>& words) const;
    size_t place_among(const text_bytes& in, const std::vector<word>& words) const;
    size_t former_place_among(const text_bytes& in, const std::vector<word>& words) const;
    std::string bare() const;
    char mark() const;
};

} // namespace km
