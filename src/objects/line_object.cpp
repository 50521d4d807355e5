// line_object: a line in a text file
// format: docs/formats/package-file.md
// invariant: only whole lines are put in and taken out
#include "line_object.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "text_file.h"

namespace km {

const char* km_line::codable_name() const { return "com.ombrel.sd.cmObjects.KmLine"; }

void km_line::encode_object(encoder& to) const {
    text_object::encode_object(to);
    to.encode_string_field(220, text);
    to.encode_integer_field(221, position);
    to.encode_string_field(222, pattern);
    to.encode_integer_field(223, stood.number);
    to.encode_string_field(224, stood.before);
    to.encode_string_field(225, stood.behind);
    to.encode_string_field(226, whole);
}

codable* km_line::decode_object(decoder& from, long stream_version) {
    text_object::decode_object(from, stream_version);
    from.decode_string_field(220, text);
    from.decode_integer_field(221, position);
    from.decode_string_field(222, pattern);
    from.decode_integer_field(223, stood.number);
    from.decode_string_field(224, stood.before);
    from.decode_string_field(225, stood.behind);
    from.decode_string_field(226, whole);
    return this;
}

void km_line::import(importer& from) {
    text_object::import(from);
    from.get_string("text", &text);
    from.get_integer("position", &position);
    from.get_string("pattern", &pattern);
}

void km_line::export_(exporter& to) const {
    text_object::export_(to);
    to.put_string("text", text);
    to.put_integer("position", position);
    if (!pattern.empty())
        to.put_string("pattern", pattern);
}

std::string km_line::bytes_of_text() const {
    return stood.number ? uncarried(whole) : std::string(text.mbcs_str());
}

std::string km_line::name_of_text() const {
    return text.empty() ? std::string("like ") + pattern.mbcs_str() : std::string(text.mbcs_str());
}

std::string km_line::fault() const {
    if (stood.number || (restores && absent))
        return {};
    const std::string bytes = bytes_of_text();
    if (bytes.empty() && pattern.empty())
        return "there is no text";
    if (bytes.find_first_of("\r\n") != std::string::npos)
        return "the text has more than one line";
    if (bytes.find("$(") != std::string::npos)
        return "the text holds a variable that is not defined";
    if (position < text_file::at_end || position > text_file::after_last)
        return "there is no such position";
    return {};
}

bool km_line::find(const text_bytes& in, text_bytes::line& out) const {
    const bool last = position == text_file::at_end || position == text_file::before_last ||
                      position == text_file::after_last;
    return finds_by_pattern() ? in.find_like(pattern, last, out)
                              : in.find(bytes_of_text(), last, out);
}

bool km_line::stands(const text_bytes& in) const {
    text_bytes::line at;
    return find(in, at);
}

size_t km_line::place_in(const text_bytes& in) const {
    const bool is_before =
        position == text_file::before_first || position == text_file::before_last;
    const bool is_last = position == text_file::before_last || position == text_file::after_last;
    text_bytes::line at;
    if (position == text_file::at_end)
        return in.bytes().size();
    if (position == text_file::at_start)
        return in.start();
    if (pattern.empty() || !in.find_like(pattern, is_last, at))
        return is_before ? in.start() : in.bytes().size();
    return is_before ? at.begin : at.next;
}

void km_line::put_into(text_bytes& in, std::string& replaced) {
    replaced = "+";
    const size_t place =
        stood.number ? in.way_back(stood, in.start(), in.bytes().size()) : place_in(in);
    in.insert(place, bytes_of_text());
}

bool km_line::take_out(text_bytes& in, const std::string&) {
    text_bytes::line at;
    if (!find(in, at))
        return false;
    in.remove(at);
    return true;
}

void km_line::remember(const text_bytes& in, text_object& copy) const {
    auto& undo = static_cast<km_line&>(copy);
    text_bytes::line at;
    if (!find(in, at))
        return;
    undo.absent = 0;
    undo.whole = carried(in.text(at));
    undo.stood = in.place_of(at);
}

extern "C" codable* make_KmLine() { return new km_line; }

} // namespace km
