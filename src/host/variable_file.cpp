// variable_file: faults of the files of variables that people write
// format: docs/formats/variables-file.md
// invariant: a file is read once, and a bounded part of it
#include "variable_file.h"

#include "base/uxl.h"
#include "location.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kmhost {

namespace {

constexpr size_t longest_line = size_t{1} << 20;
constexpr size_t longest_file = size_t{64} << 20;
constexpr size_t most_faults = 20;
constexpr size_t most_shown = 100;
constexpr std::string_view blanks = " \t\r";

class variable_file {
  public:
    variable_file(std::string path, outcome& result) : path_(std::move(path)), result_(result) {}
    void check();

  private:
    void check_line();
    bool is_utf16(std::istream& in);
    bool check_characters();
    void note(size_t divider);
    void check_circles();
    void tell(const std::string& what, size_t byte);

    struct value {
        long number;
        std::string line;
        std::vector<std::string> names; // that it refers to
    };
    using values = std::map<std::string, value>;
    void tell_circle(const values::value_type& of);

    std::string path_;
    outcome& result_;
    std::string line_;
    long number_ = 0;
    size_t faults_ = 0;
    values values_; // those that refer to others
};

// `byte` of the line is where it begins.
void variable_file::tell(const std::string& what, size_t byte) {
    if (++faults_ > most_faults)
        return;
    size_t column = 1;
    for (size_t i = 0; i < byte; ++i)
        column += (static_cast<unsigned char>(line_[i]) & 0xC0) != 0x80;
    std::string shown = line_.substr(0, most_shown);
    for (char& c : shown)
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7F)
            c = '?';
    message one{"variables", severity::error, what};
    one.place = path_ + ":" + std::to_string(number_) + ":" + std::to_string(column);
    one.shown = "    " + shown + (byte < most_shown ? "\n    " + std::string(byte, ' ') + "^" : "");
    result_.messages.push_back(std::move(one));
}

bool variable_file::check_characters() {
    for (size_t at = 0; at < line_.size();) {
        char16_t units[2];
        const auto byte = static_cast<unsigned char>(line_[at]);
        const int used = byte < 0x80 ? 1 : km::uxl_mbtowc(0, units, &line_[at], line_.size() - at);
        if (used < 1) {
            tell("Bytes that are no characters.", at);
            return false;
        }
        if (byte < 0x20 && byte != '\t' && byte != '\r') {
            tell("The control character " + std::to_string(byte) + " cannot stand here.", at);
            return false;
        }
        at += static_cast<size_t>(used);
    }
    return true;
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

void variable_file::note(size_t divider) {
    value one{number_, line_, {}};
    for (size_t at = line_.find("$(", divider); at != std::string::npos;
         at = line_.find("$(", at)) {
        at += 2;
        const size_t end = line_.find_first_of("()", at);
        if (end != std::string::npos && line_[end] == ')')
            one.names.push_back(line_.substr(at, end - at));
    }
    if (!one.names.empty())
        values_[trimmed(line_.substr(0, divider))] = std::move(one);
}

void variable_file::check_line() {
    const size_t first = line_.find_first_not_of(blanks);
    if (!check_characters() || first == std::string::npos || line_[first] == '#')
        return;
    const size_t divider = line_.find('=');
    if (line_.size() > longest_line)
        tell("The line is longer than " + std::to_string(longest_line) + " bytes.", 0);
    else if (divider == std::string::npos)
        tell("A line says NAME=VALUE, or begins with '#'.", first);
    else
        note(divider);
}

// One walk in depth over all: a name that is met while it is still open refers to itself.
void variable_file::check_circles() {
    struct visit {
        values::iterator at;
        size_t next = 0;
    };
    std::set<std::string> seen, open;
    for (auto start = values_.begin(); start != values_.end(); ++start) {
        std::vector<visit> way;
        const auto enter = [&](values::iterator at) {
            if (at != values_.end() && seen.insert(at->first).second) {
                open.insert(at->first);
                way.push_back({at});
            }
        };
        for (enter(start); !way.empty();) {
            auto& here = way.back();
            if (here.next == here.at->second.names.size()) {
                open.erase(here.at->first);
                way.pop_back();
                continue;
            }
            const auto next = values_.find(here.at->second.names[here.next++]);
            if (next != values_.end() && open.contains(next->first))
                tell_circle(*next);
            enter(next);
        }
    }
}

void variable_file::tell_circle(const values::value_type& of) {
    number_ = of.second.number;
    line_ = of.second.line;
    tell("The variable '" + of.first + "' has no value: references go round in a circle.",
         line_.find_first_not_of(blanks));
}

// It has no lines to look through.
bool variable_file::is_utf16(std::istream& in) {
    char front[512];
    in.read(front, sizeof front);
    const auto count = static_cast<size_t>(in.gcount());
    in.clear();
    in.seekg(0);
    if (!km::uxl_looks_like_utf16(front, count))
        return false;
    number_ = 1;
    tell("The text looks like UTF-16. Save it as UTF-8.", 0);
    return true;
}

void variable_file::check() {
    std::ifstream in(path_, std::ios::binary | std::ios::ate);
    if (!in)
        return; // the reader passes over it
    if (static_cast<size_t>(in.tellg()) > longest_file) {
        tell("The file is longer than " + std::to_string(longest_file) + " bytes.", 0);
    } else if (in.seekg(0); !is_utf16(in)) {
        while (faults_ < most_faults && std::getline(in, line_)) {
            ++number_;
            check_line();
        }
        check_circles();
    }
    if (faults_)
        result_.fail(exit_invalid, "variables",
                     "The file of variables " + path_ + " has faults. Nothing was changed.");
}

} // namespace

bool check_variable_files(outcome& result) {
    for (const char* name : {"user_file_variables", "inventory_scan_file"}) {
        const std::string path = setting(name);
        std::error_code error;
        if (!path.empty() && std::filesystem::is_regular_file(path, error))
            variable_file(path, result).check();
    }
    return !result.failed();
}

} // namespace kmhost
