// ini_object: an item of an INI file
// format: docs/formats/package-file.md
// invariant: of a line only the value is changed; all others stay byte for byte
#include "ini_object.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"

namespace km {

const char* km_ini_item::codable_name() const { return "com.ombrel.sd.cmObjects.KmIniItem"; }

void km_ini_item::encode_object(encoder& to) const {
    text_object::encode_object(to);
    to.encode_string_field(220, section);
    to.encode_string_field(221, key);
    to.encode_string_field(222, value);
    to.encode_string_field(223, whole);
    if (!stood.number)
        return;
    to.encode_integer_field(224, stood.number);
    to.encode_string_field(225, stood.before);
    to.encode_string_field(226, stood.behind);
}

codable* km_ini_item::decode_object(decoder& from, long stream_version) {
    text_object::decode_object(from, stream_version);
    from.decode_string_field(220, section);
    from.decode_string_field(221, key);
    from.decode_string_field(222, value);
    from.decode_string_field(223, whole);
    from.decode_integer_field(224, stood.number);
    from.decode_string_field(225, stood.before);
    from.decode_string_field(226, stood.behind);
    return this;
}

void km_ini_item::import(importer& from) {
    text_object::import(from);
    from.get_string("section", &section);
    from.get_string("key", &key);
    from.get_string("value", &value);
}

void km_ini_item::export_(exporter& to) const {
    text_object::export_(to);
    to.put_string("section", section);
    to.put_string("key", key);
    to.put_string("value", value);
}

namespace {
std::string clean(const ustring& text) { return trimmed(text.mbcs_str()); }
} // namespace

std::string km_ini_item::name_of_text() const {
    return "[" + clean(section) + "] " + clean(key) + "=" + clean(value);
}

std::string km_ini_item::shown() const {
    return whole.empty() ? name_of_text() : "[" + clean(section) + "] " + trimmed(uncarried(whole));
}

std::string km_ini_item::fault() const {
    const std::string of = clean(section), name = clean(key), text = clean(value);
    if (of.find_first_of("[]\r\n") != std::string::npos)
        return "the section holds a bracket or more than one line";
    if (name.empty() || name.find_first_of("=\r\n") != std::string::npos ||
        name.find_first_of("[;#") == 0)
        return "there is no key, or it holds a '=' or begins with '[', ';' or '#'";
    if (text.find_first_of("\r\n") != std::string::npos)
        return "the value has more than one line";
    if ((of + name + text).find("$(") != std::string::npos)
        return "the text holds a variable that is not defined";
    return {};
}

namespace {

enum class kind_of_line { blank, comment, header, item, other };

// What a line is; of a header the name in brackets, of an item the key: [begin, end).
kind_of_line read_line(const std::string& all, size_t& begin, size_t& end) {
    trim(all, begin, end);
    if (begin == end)
        return kind_of_line::blank;
    if (all[begin] == ';' || all[begin] == '#')
        return kind_of_line::comment;
    const char closes = all[begin] == '[' ? ']' : '=';
    const size_t at = all.find(closes, begin);
    if (at == std::string::npos || at >= end)
        return kind_of_line::other;
    begin += closes == ']';
    end = at;
    trim(all, begin, end);
    return closes == ']' ? kind_of_line::header : kind_of_line::item;
}

struct value_place {
    size_t begin, end; // without a comment
    size_t whole_end;  // with it
};

value_place value_in(const std::string& all, const text_bytes::line& item) {
    value_place at{all.find('=', item.begin) + 1, item.end, item.end};
    trim(all, at.begin, at.end);
    at.whole_end = at.end;
    for (size_t i = at.begin; i + 1 < at.whole_end; ++i)
        if ((all[i] == ' ' || all[i] == '\t') && (all[i + 1] == ';' || all[i + 1] == '#')) {
            at.end = i;
            break;
        }
    trim(all, at.begin, at.end);
    return at;
}

} // namespace

km_ini_item::found km_ini_item::look(const text_bytes& in) const {
    const std::string& all = in.bytes();
    const std::string of = clean(section), name = clean(key);
    found what;
    bool inside = of.empty(), has_style = false;
    what.has_section = inside;
    what.begin = what.end = in.start();
    text_bytes::line one;
    for (size_t from = in.start(); in.at(from, one); from = one.next) {
        size_t begin = one.begin, end = one.end;
        const auto kind = read_line(all, begin, end);
        if (kind == kind_of_line::header) {
            inside = !of.empty() && all.compare(begin, end - begin, of) == 0;
            if (inside) {
                what.begin = one.next;
                what.has_section = what.is_empty = true;
                what.header = one;
                what.end = one.next;
            }
        } else if (inside && kind != kind_of_line::blank) {
            what.is_empty = false;
            what.end = one.next;
        }
        if (kind != kind_of_line::item)
            continue;
        const auto at = value_in(all, one);
        if (at.begin < at.whole_end && (inside || !has_style)) {
            what.around = all.substr(end, at.begin - end);
            has_style = true;
        }
        if (inside && all.compare(begin, end - begin, name) == 0) {
            what.has_item = true;
            what.item = one;
        }
    }
    return what;
}

bool km_ini_item::has_our_value(const text_bytes& in, const found& what) const {
    if (!what.has_item)
        return false;
    const auto at = value_in(in.bytes(), what.item);
    const std::string ours = clean(value);
    return in.bytes().compare(at.begin, at.end - at.begin, ours) == 0 ||
           in.bytes().compare(at.begin, at.whole_end - at.begin, ours) == 0;
}

bool km_ini_item::stands(const text_bytes& in) const {
    const found what = look(in);
    if (!what.has_item || (is_asked_for() && value.empty()))
        return what.has_item;
    return whole.empty() ? has_our_value(in, what) : in.text(what.item) == uncarried(whole);
}

bool km_ini_item::takes_own_out(const text_bytes& in) const {
    return absent || (!whole.empty() && !stands(in) && has_our_value(in, look(in)));
}

int km_ini_item::exists(int phase) {
    text_bytes text;
    if (absent || phase == p_prepare || !fault().empty())
        return text_object::exists(phase);
    return read_quietly(text) && look(text).has_item;
}

std::string km_ini_item::new_line(const found& what) const {
    return whole.empty() ? clean(key) + what.around + clean(value) : uncarried(whole);
}

void km_ini_item::give_value(text_bytes& in, const text_bytes::line& item) const {
    const auto at = value_in(in.bytes(), item);
    // Behind a '=' that has a blank in front there is one behind it, too.
    const bool is_spaced = at.begin == at.end && at.begin > 1 && in.bytes()[at.begin - 1] == '=' &&
                           in.bytes()[at.begin - 2] == ' ';
    in.replace_part(at.begin, at.end, (is_spaced ? " " : "") + clean(value));
}

void km_ini_item::put_into(text_bytes& in, std::string& replaced) {
    const found what = look(in);
    replaced = what.has_item ? std::string("=") + carried(in.text(what.item)).mbcs_str() : "+";
    if (what.has_item && whole.empty()) {
        give_value(in, what.item);
    } else if (what.has_item) {
        in.replace(what.item, uncarried(whole));
    } else if (what.has_section) {
        const size_t place = stood.number ? in.way_back(stood, what.begin, what.end) : what.end;
        in.insert(place, new_line(what));
    } else {
        in.insert(in.bytes().size(), "[" + clean(section) + "]");
        in.insert(in.bytes().size(), new_line(what));
    }
}

bool km_ini_item::take_out(text_bytes& in, const std::string& was) {
    const found what = look(in);
    if (!what.has_item || (!stands(in) && (!takes_changed() || was.empty())))
        return false;
    if (!was.empty() && was[0] == '=')
        in.replace(what.item, uncarried(ustring(was.c_str() + 1)));
    else
        in.remove(what.item);
    return true;
}

void km_ini_item::remember(const text_bytes& in, text_object& copy) const {
    const found what = look(in);
    if (!what.has_item)
        return;
    auto& undo = static_cast<km_ini_item&>(copy);
    undo.absent = 0;
    undo.whole = carried(in.text(what.item));
    undo.stood = in.place_of(what.item);
}

std::string km_ini_item::slot() const { return "[" + clean(section) + "]" + clean(key); }

std::string km_ini_item::frame() const {
    const std::string of = clean(section);
    return of.empty() ? of : "section [" + of + "]";
}

bool km_ini_item::frame_stands(const text_bytes& in) const { return look(in).has_section; }

void km_ini_item::take_frame(text_bytes& in) {
    const found what = look(in);
    if (what.has_section && what.is_empty)
        in.remove(what.header);
}

extern "C" codable* make_KmIniItem() { return new km_ini_item; }

} // namespace km
