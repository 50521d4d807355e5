// formatter: one line of text out of a report, after a template
//
// A template is text with fields between '%': "%name%" is replaced by the report's name, "%%" by a
// percent sign, "\n" ends the line, "\t" writes a tab; any other character behind a backslash is
// dropped with it. An unknown field writes nothing, and so does what an open '%' or a backslash at
// the end leaves. A template cannot fail. The page of the format: docs/formats/report-template.md.
#pragma once

#include "ustring.h"
#include "vector.h"

namespace km {

class log_protocol;
class ustring_writer;

class formatter_token : public codable {
  public:
    enum token_kind : int { literal = 0, line_end = 1, tab = 2, first_field = 3, last_field = 25 };

    explicit formatter_token(int of_kind = literal, const ustring& of_text = ustring())
        : kind(of_kind), text(of_text) {}
    // Appends the names of all fields in the order of their kinds, separated by ", ".
    static void kind_list(ustring& names);
    // Kind of a field's name; `literal` for an unknown one.
    static int choose_kind(const ustring& name);

    codable* clone() const override { return new formatter_token(*this); }
    const char* codable_name() const override { return nullptr; }
    codable* decode_object(decoder&, long) override { return nullptr; }
    void encode_object(encoder&) const override {}
    void import(importer&) override {}
    void export_(exporter&) const override {}

    int kind;
    ustring text; // of a literal
};

class formatter {
  public:
    // The text is copied; null: "%distribution_id% %logger_name% [ %listeners% ] %endpoint_name%".
    explicit formatter(const char* format = nullptr);
    virtual ~formatter() = default;
    // Words for an operation's type and mode; a caller's subclass supplies them.
    virtual ustring _get_optype_str(long operation_type);
    virtual ustring _get_cmop_mode_str(long operation_type, long operation_mode, int unused);

    // Writes the fields of `of`, and the line end behind them.
    void write_formatted(ustring_writer& to, const log_protocol& of, const ustring& logger_name,
                         const ustring& listeners);
    const vector& get_tokens() const { return tokens_; }

  private:
    void add(int kind, const ustring& text = ustring());
    void flush_literal(ustring& text);
    ustring field(int kind, const log_protocol& of);

    vector tokens_;
};

} // namespace km
