// token_object: a token in a command line of a text file
// format: docs/formats/package-file.md
// invariant: a token goes with one separator, so that the others stay byte for byte
#include "token_object.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "text_file.h"

#include <cstdlib>

namespace km {

const char* km_token::codable_name() const { return "com.ombrel.sd.cmObjects.KmToken"; }

void km_token::encode_object(encoder& to) const {
    text_object::encode_object(to);
    to.encode_string_field(220, name);
    to.encode_string_field(221, token);
    to.encode_string_field(222, separator);
    to.encode_integer_field(223, position);
    to.encode_string_field(224, reference);
    to.encode_integer_field(225, number);
    to.encode_string_field(226, before);
    to.encode_string_field(227, behind);
}

codable* km_token::decode_object(decoder& from, long stream_version) {
    text_object::decode_object(from, stream_version);
    from.decode_string_field(220, name);
    from.decode_string_field(221, token);
    from.decode_string_field(222, separator);
    from.decode_integer_field(223, position);
    from.decode_string_field(224, reference);
    from.decode_integer_field(225, number);
    from.decode_string_field(226, before);
    from.decode_string_field(227, behind);
    return this;
}

void km_token::import(importer& from) {
    text_object::import(from);
    from.get_string("name", &name);
    from.get_string("token", &token);
    from.get_string("separator", &separator);
    from.get_integer("position", &position);
    from.get_string("reference", &reference);
}

void km_token::export_(exporter& to) const {
    text_object::export_(to);
    to.put_string("name", name);
    to.put_string("token", token);
    to.put_string("separator", separator);
    to.put_integer("position", position);
    if (!reference.empty())
        to.put_string("reference", reference);
}

std::string km_token::name_of_text() const { return bare() + " of " + trimmed(name.mbcs_str()); }

char km_token::mark() const { return separator.empty() ? ':' : separator.mbcs_str()[0]; }

// Separators at the ends of the definition's token are none of it.
std::string km_token::bare() const {
    std::string text = trimmed(token.mbcs_str());
    while (!text.empty() && text.front() == mark())
        text.erase(0, 1);
    while (!text.empty() && text.back() == mark())
        text.pop_back();
    return text;
}

std::string km_token::fault() const {
    const std::string command = trimmed(name.mbcs_str()), text = bare(),
                      divider = separator.mbcs_str();
    if (command.empty() || command.find_first_of("=\r\n") != std::string::npos)
        return "there is no name, or it holds a '='";
    if (text.empty() || text.find_first_of("\r\n\"'") != std::string::npos)
        return "there is no token, or it holds a quote or more than one line";
    if (divider.size() > 1 || (divider.size() == 1 && divider.find_first_of("\r\n\"'=") == 0))
        return "the separator is not one character";
    if (text.find(mark()) != std::string::npos)
        return "the token holds the separator";
    if (command.find("$(") != std::string::npos || text.find("$(") != std::string::npos)
        return "the text holds a variable that is not defined";
    if (position < text_file::at_end || position > text_file::after_last)
        return "there is no such position";
    return {};
}

namespace {
// Where the command's text begins, npos if the line is not that command.
size_t text_begin(const std::string& all, size_t begin, size_t end, const std::string& name) {
    const auto skip_blanks = [&](size_t at) {
        while (at < end && (all[at] == ' ' || all[at] == '\t'))
            ++at;
        return at;
    };
    size_t at = skip_blanks(begin);
    if (end - at < name.size() || all.compare(at, name.size(), name) != 0)
        return std::string::npos;
    at = skip_blanks(at + name.size());
    return at < end && all[at] == '=' ? skip_blanks(at + 1) : std::string::npos;
}

// What stands in quotes, or up to a comment.
void cut_text(const std::string& all, size_t& begin, size_t& end) {
    const bool is_quoted = begin < end && (all[begin] == '"' || all[begin] == '\'');
    const size_t quote = is_quoted ? all.find(all[begin], begin + 1) : std::string::npos;
    if (quote != std::string::npos && quote < end) {
        ++begin;
        end = quote;
        return;
    }
    for (size_t at = begin; at + 1 < end; ++at)
        if ((all[at] == ' ' || all[at] == '\t') && all[at + 1] == '#')
            end = at;
    if (begin < end && all[begin] == '#' && begin > 0 &&
        (all[begin - 1] == ' ' || all[begin - 1] == '\t'))
        end = begin;
    trim(all, begin, end);
}
} // namespace

bool km_token::find_list(const text_bytes& in, list& out) const {
    const std::string command = trimmed(name.mbcs_str());
    for (size_t from = in.start(); in.at(from, out.line); from = out.line.next) {
        out.begin = text_begin(in.bytes(), out.line.begin, out.line.end, command);
        if (out.begin == std::string::npos)
            continue;
        out.end = out.line.end;
        cut_text(in.bytes(), out.begin, out.end);
        return true;
    }
    return false;
}

// An empty list has no words; between two separators stands an empty one.
std::vector<km_token::word> km_token::words_of(const text_bytes& in, const list& of) const {
    std::vector<word> words;
    if (of.begin == of.end)
        return words;
    for (size_t from = of.begin;;) {
        const size_t to = std::min(in.bytes().find(mark(), from), of.end);
        words.push_back({from, to});
        if (to == of.end)
            return words;
        from = to + 1;
    }
}

namespace {
template <class Word> std::string text_of(const text_bytes& in, const Word& of) {
    return in.bytes().substr(of.begin, of.end - of.begin);
}
} // namespace

long km_token::find(const text_bytes& in, const std::vector<word>& words) const {
    const std::string wanted = bare();
    for (size_t i = 0; i < words.size(); ++i)
        if (trimmed(text_of(in, words[i])) == wanted)
            return static_cast<long>(i);
    return -1;
}

bool km_token::stands(const text_bytes& in) const {
    list at;
    return find_list(in, at) && find(in, words_of(in, at)) >= 0;
}

// Index in front of which the token is put.
size_t km_token::place_among(const text_bytes& in, const std::vector<word>& words) const {
    const bool is_before =
        position == text_file::before_first || position == text_file::before_last;
    const bool is_last = position == text_file::before_last || position == text_file::after_last;
    size_t found = words.size();
    for (size_t i = 0; i < words.size() && !reference.empty(); ++i)
        if (ustring(trimmed(text_of(in, words[i])).c_str()).matches_pattern(reference) &&
            (is_last || found == words.size()))
            found = i;
    if (position == text_file::at_start || (is_before && found == words.size()))
        return 0;
    if (position == text_file::at_end || found == words.size())
        return words.size();
    return is_before ? found : found + 1;
}

// As the line of a km_line: by its neighbours, else by its number.
size_t km_token::former_place_among(const text_bytes& in, const std::vector<word>& words) const {
    const std::string left = uncarried(before), right = uncarried(behind);
    size_t best = words.size();
    int best_fit = -1;
    long best_distance = 0;
    for (size_t i = 0; i <= words.size(); ++i) {
        const std::string before_it = i ? text_of(in, words[i - 1]) : "";
        const std::string behind_it = i < words.size() ? text_of(in, words[i]) : "";
        const int fit = (before_it == left ? 2 : 0) + (behind_it == right ? 1 : 0);
        const long distance = std::labs(static_cast<long>(i) + 1 - number);
        if (fit > best_fit || (fit == best_fit && distance < best_distance)) {
            best = i;
            best_fit = fit;
            best_distance = distance;
        }
    }
    return best;
}

void km_token::put_into(text_bytes& in, std::string& replaced) {
    replaced = "+";
    const std::string text = bare();
    list at;
    if (!find_list(in, at)) {
        in.insert(in.bytes().size(), trimmed(name.mbcs_str()) + "=" + text);
        return;
    }
    const auto words = words_of(in, at);
    const size_t place = number ? former_place_among(in, words) : place_among(in, words);
    if (words.empty())
        in.replace_part(at.begin, at.begin, text);
    else if (place < words.size())
        in.replace_part(words[place].begin, words[place].begin, text + mark());
    else
        in.replace_part(at.end, at.end, mark() + text);
}

bool km_token::take_out(text_bytes& in, const std::string&) {
    list at;
    if (!find_list(in, at))
        return false;
    const auto words = words_of(in, at);
    const long hit = find(in, words);
    if (hit < 0)
        return false;
    const word& one = words[static_cast<size_t>(hit)];
    if (hit > 0)
        in.replace_part(one.begin - 1, one.end, "");
    else
        in.replace_part(one.begin, words.size() > 1 ? one.end + 1 : one.end, "");
    return true;
}

void km_token::remember(const text_bytes& in, text_object& copy) const {
    auto& undo = static_cast<km_token&>(copy);
    list at;
    if (!find_list(in, at))
        return;
    const auto words = words_of(in, at);
    const long hit = find(in, words);
    if (hit < 0)
        return;
    const auto i = static_cast<size_t>(hit);
    undo.absent = 0;
    undo.number = static_cast<std::int32_t>(hit) + 1;
    undo.before = i ? carried(text_of(in, words[i - 1])) : ustring();
    undo.behind = i + 1 < words.size() ? carried(text_of(in, words[i + 1])) : ustring();
}

std::string km_token::frame() const { return "command " + trimmed(name.mbcs_str()); }

bool km_token::frame_stands(const text_bytes& in) const {
    list at;
    return find_list(in, at);
}

void km_token::take_frame(text_bytes& in) {
    list at;
    if (find_list(in, at) && at.begin == at.end)
        in.remove(at.line);
}

extern "C" codable* make_KmToken() { return new km_token; }

} // namespace km
