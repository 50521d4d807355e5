// definition_problems: the faults of a text definition, with their places
// no format
// invariant: what is told is bounded, whatever the length of a line or the number of faults
#include "definition_problems.h"

#include "base/msg_supp.h"

#include <algorithm>

namespace km {

namespace {

constexpr size_t most_columns = 100; // of a line that is shown
constexpr size_t most_argument = 200;

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// Length of the character at `at`, 0 if it is not well-formed.
size_t character_length(const std::string& text, size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80)
        return 1;
    const size_t length = first >= 0xC2 && first < 0xE0   ? 2
                          : first >= 0xE0 && first < 0xF0 ? 3
                          : first >= 0xF0 && first < 0xF5 ? 4
                                                          : 0;
    if (!length || at + length > text.size())
        return 0;
    for (size_t i = 1; i < length; ++i)
        if (!continues(text[at + i]))
            return 0;
    const auto second = static_cast<unsigned char>(text[at + 1]);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second >= 0xA0;
    const bool too_high = first == 0xF4 && second >= 0x90;
    return overlong || surrogate || too_high ? 0 : length;
}

std::string shortened(const std::string& text) {
    if (text.size() <= most_argument)
        return text;
    size_t end = most_argument;
    while (end > 0 && continues(text[end]))
        --end;
    return text.substr(0, end) + "...";
}

// The characters of a line, each printable on one column.
std::vector<std::string> columns_of(const std::string& text, size_t from, size_t until) {
    std::vector<std::string> columns;
    for (size_t at = from; at < until;) {
        const size_t length = std::max<size_t>(character_length(text, at), 1);
        const auto first = static_cast<unsigned char>(text[at]);
        const bool shown = character_length(text, at) && first >= ' ' && first != 0x7F;
        columns.push_back(shown                            ? text.substr(at, length)
                          : first == '\t' || first == '\r' ? " "
                                                           : "?");
        at += length;
    }
    return columns;
}

// Number of single changes between two words; neighbours that changed places count as one.
int distance(const std::string& a, const std::string& b) {
    std::vector<std::vector<int>> cost(a.size() + 1, std::vector<int>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        for (size_t j = 0; j <= b.size(); ++j) {
            if (!i || !j) {
                cost[i][j] = static_cast<int>(i + j);
                continue;
            }
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    return cost[a.size()][b.size()];
}

} // namespace

size_t valid_utf8(const std::string& text) {
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = character_length(text, at);
        if (!length)
            break;
        at += length;
    }
    return at;
}

std::string nearest_word(const std::string& word, const std::vector<std::string>& known) {
    constexpr size_t longest_compared = 64;
    if (word.size() > longest_compared)
        return {};
    int best = std::max(2, static_cast<int>(word.size()) / 3) + 1;
    std::string found;
    for (const auto& one : known) {
        const int changes = one.size() > longest_compared ? best : distance(word, one);
        if (changes < best) {
            best = changes;
            found = one;
        }
    }
    return found;
}

std::string hint_text(const std::string& nearest) {
    return nearest.empty() ? "" : " Did you mean '" + nearest + "'?";
}

void definition_problems::begin(const std::string& file_name) {
    file_ = file_name;
    text_ = nullptr;
    problems_.clear();
    left_out_ = 0;
}

void definition_problems::add(import_message key, text_place place,
                              std::vector<std::string> arguments) {
    if (is_full()) {
        ++left_out_;
        return;
    }
    for (auto& one : arguments)
        one = shortened(one);
    problems_.push_back({key, place, std::move(arguments)});
}

std::string definition_problems::place_text(text_place place) const {
    if (!place.line)
        return file_;
    return file_ + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string definition_problems::marked_line(text_place place) const {
    if (!text_ || !place.line)
        return {};
    size_t from = 0;
    for (int line = 1; line < place.line && from != std::string::npos; ++line) {
        from = text_->find('\n', from);
        if (from != std::string::npos)
            ++from;
    }
    if (from == std::string::npos || from >= text_->size())
        return {};
    const size_t until = std::min(text_->find('\n', from), text_->size());
    // Characters in front of the window cost a look each, and nothing more.
    const auto column = static_cast<size_t>(std::max(place.column, 1)) - 1;
    const size_t skipped = column > most_columns / 2 ? column - most_columns / 2 : 0;
    for (size_t i = 0; i < skipped && from < until; ++i)
        from += std::max<size_t>(character_length(*text_, from), 1);
    const size_t window = std::min(until, from + most_columns * 4);
    auto shown = columns_of(*text_, from, window);
    if (shown.size() > most_columns)
        shown.resize(most_columns);
    std::string line = "    ";
    for (const auto& one : shown)
        line += one;
    while (line.ends_with(' '))
        line.pop_back();
    return line + "\n    " + std::string(column - skipped, ' ') + "^\n";
}

void definition_problems::tell_one(spmessage& messages, const definition_problem& one) const {
    const std::string place = place_text(one.place);
    const std::string line = marked_line(one.place);
    std::vector<std::string> all = one.arguments;
    all.push_back(line);
    all.resize(6);
    messages.add(import_catalog, one.key, place.c_str(), all[0].c_str(), all[1].c_str(),
                 all[2].c_str(), all[3].c_str(), all[4].c_str(), all[5].c_str());
}

void definition_problems::tell(spmessage& messages) {
    std::stable_sort(problems_.begin(), problems_.end(), [](const auto& a, const auto& b) {
        return std::pair(a.place.line, a.place.column) < std::pair(b.place.line, b.place.column);
    });
    for (const auto& one : problems_)
        tell_one(messages, one);
    if (left_out_)
        messages.add(import_catalog, im_more, file_.c_str(), std::to_string(left_out_).c_str());
}

} // namespace km
