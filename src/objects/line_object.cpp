// line_object: a line in a text file
// format: docs/formats/package-file.md
// invariant: only whole lines are put in and taken out
#include "line_object.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "text_file.h"

#include <cstdlib>

namespace km {

const char* km_line::codable_name() const { return "com.ombrel.sd.cmObjects.KmLine"; }

void km_line::encode_object(encoder& to) const {
    text_object::encode_object(to);
    to.encode_string_field(220, text);
    to.encode_integer_field(221, position);
    to.encode_string_field(222, pattern);
    to.encode_integer_field(223, number);
    to.encode_string_field(224, before);
    to.encode_string_field(225, behind);
    to.encode_string_field(226, whole);
}

codable* km_line::decode_object(decoder& from, long stream_version) {
    text_object::decode_object(from, stream_version);
    from.decode_string_field(220, text);
    from.decode_integer_field(221, position);
    from.decode_string_field(222, pattern);
    from.decode_integer_field(223, number);
    from.decode_string_field(224, before);
    from.decode_string_field(225, behind);
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
    return number ? uncarried(whole) : std::string(text.mbcs_str());
}

std::string km_line::name_of_text() const {
    return text.empty() ? std::string("like ") + pattern.mbcs_str() : std::string(text.mbcs_str());
}

std::string km_line::fault() const {
    if (number || (restores && absent))
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

// Between the neighbours of before; else behind or in front of the one that is still there; else by
// number. Of several places the one nearest to the number counts.
size_t km_line::former_place_in(const text_bytes& in) const {
    const std::string above = uncarried(before), below = uncarried(behind);
    struct place {
        int fit = -1;
        long distance = 0;
        size_t at = 0;
    } best;
    std::string line_above;
    size_t at = in.start();
    text_bytes::line one;
    for (long i = 1;; ++i) {
        const bool more = in.at(at, one);
        const std::string line_below = more ? in.text(one) : "";
        const place here{(line_above == above ? 2 : 0) + (line_below == below ? 1 : 0),
                         std::labs(i - number), at};
        if (here.fit > best.fit || (here.fit == best.fit && here.distance < best.distance))
            best = here;
        if (!more)
            return best.at;
        line_above = line_below;
        at = one.next;
    }
}

void km_line::put_into(text_bytes& in, std::string& replaced) {
    replaced = "+";
    in.insert(number ? former_place_in(in) : place_in(in), bytes_of_text());
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
    text_bytes::line at, neighbour;
    if (!find(in, at))
        return;
    undo.absent = 0;
    undo.whole = carried(in.text(at));
    undo.before = in.before(at.begin, neighbour) ? carried(in.text(neighbour)) : ustring();
    undo.behind = in.at(at.next, neighbour) ? carried(in.text(neighbour)) : ustring();
    undo.number = 1;
    for (size_t from = in.start(); in.at(from, neighbour) && from < at.begin; from = neighbour.next)
        ++undo.number;
}

extern "C" codable* make_KmLine() { return new km_line; }

} // namespace km
