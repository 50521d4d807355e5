// init_definition: the first definition of a package, written from a directory tree
// format: docs/DEFINITIONS.md
// invariant: what a value says is read back as the same bytes
#include "init_definition.h"

#include "durable.h"
#include "pathname.h"
#include "tree_scan.h"
#include "words.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <sys/stat.h>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

bool is_control(char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7f; }

// Well-formed UTF-8: the shortest forms only, no surrogates, nothing above U+10FFFF.
bool is_utf8(const std::string& text) {
    constexpr unsigned smallest[] = {0, 0x80, 0x800, 0x10000};
    for (size_t at = 0; at < text.size();) {
        const auto first = static_cast<unsigned char>(text[at++]);
        const unsigned more = first < 0x80   ? 0
                              : first < 0xC0 ? 4
                              : first < 0xE0 ? 1
                              : first < 0xF0 ? 2
                              : first < 0xF8 ? 3
                                             : 4;
        if (more == 4 || at + more > text.size())
            return false;
        unsigned code = more ? first & (0x3Fu >> more) : first;
        for (unsigned i = 0; i < more; ++i, ++at) {
            const auto next = static_cast<unsigned char>(text[at]);
            if ((next & 0xC0) != 0x80)
                return false;
            code = code << 6 | (next & 0x3F);
        }
        if (code < smallest[more] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000))
            return false;
    }
    return true;
}

// For a comment, which ends with its line: what cannot stand there becomes '?'.
std::string shown(const std::string& text) {
    std::string out = is_utf8(text) ? text : "?";
    std::replace_if(out.begin(), out.end(), is_control, '?');
    return out;
}

// For a command line in a comment; empty where none can be shown.
std::string shell_word(const std::string& text) {
    if (!is_utf8(text) || std::any_of(text.begin(), text.end(), is_control))
        return "";
    const auto is_plain = [](unsigned char c) {
        return std::isalnum(c) || std::strchr("/._-+,:@%", c);
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), is_plain))
        return text;
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// Last component of the directory's full name; "package" for the root.
std::string own_name(const std::string& directory) {
    std::error_code error;
    fs::path full = fs::canonical(directory, error);
    if (error)
        full = fs::absolute(directory, error).lexically_normal();
    const std::string name = full.filename().string();
    return name.empty() ? "package" : name;
}

// A name that a package can have, near the directory's.
std::string package_name(std::string name) {
    for (char& c : name)
        if (!fault_of_name(std::string("x") + c).empty())
            c = '-';
    name.erase(0, std::min(name.find_first_not_of(".-"), name.size()));
    name.resize(std::min<size_t>(name.size(), 128));
    return is_utf8(name) && fault_of_name(name).empty() ? name : "package";
}

std::string octal(unsigned mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

bool is_same_file(const std::string& one, const std::string& other) {
    struct stat a {
    }, b{};
    return ::lstat(one.c_str(), &a) == 0 && ::stat(other.c_str(), &b) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

class writer {
  public:
    writer(const init_request& request, outcome& result) : request_(request), result_(result) {}
    void run();

  private:
    bool settle();
    bool fail(exit_code code, const char* id, const std::string& why) {
        result_.fail(code, id, why);
        return false;
    }
    bool check_entries();
    void place_sources();
    void write_head();
    void write_stanzas();
    void write_stanza(const tree_entry& one);
    bool store();
    void report();
    std::string on_machine(const std::string& path) const;
    std::string in_tree(const std::string& path) const { return request_.source + "/" + path; }
    long count(tree_kind what) const {
        return std::count_if(all_.begin(), all_.end(),
                             [what](const tree_entry& one) { return one.what == what; });
    }

    const init_request& request_;
    outcome& result_;
    std::vector<tree_entry> all_;
    std::string name_, output_, prefix_;
    bool beside_ = false; // sources are relative to the definition, not to the tree
    std::string before_;  // what stands in front of them
    std::string text_;
};

constexpr const char* first_version = "1.0";

// %n name, %v version, %d directory, %f the definition, %b how a build is told of the files.
constexpr const char* head_text = R"(kmspd 1.0
# The package %n, from the directory %d.
# What stands behind a '#' is a comment. Change what you like, and then:
#
#   kmctl lint %f
#   kmctl build %f%b -o %n-%v.spb
#   kmctl install %n-%v.spb

package {
  # An upgrade finds the older version by this name: keep it.
  name = %n
  # To be raised with every change: 1.1, 1.2, 2.0.
  version = %v
  # A line for people.
  title = %n

  # What differs from machine to machine is a variable: write $(port) in a value below.
  # Here stands what it is where nobody says otherwise (install -D port=9090).
  # default_variables {
  #   port = 8080
  # }
)";

constexpr const char* files_text =
    R"(  # Files: "path" is the place on the machine, "source" the file whose content goes there.
  # Further lines may be: owner = root, group = root, is_shared = y (other packages have it,
  # too), replace_if_existing = n (what stands there stays).
)";

std::string filled(const char* text, const std::map<char, std::string>& values) {
    std::string out;
    for (; *text; ++text)
        out += *text == '%' ? values.at(*++text) : std::string(1, *text);
    return out;
}

// Names and places, before anything is looked at.
bool writer::settle() {
    const std::string directory = own_name(request_.source);
    name_ = package_name(directory);
    output_ = request_.output.empty() ? name_ + ".spd" : request_.output;
    prefix_ = request_.prefix.empty() ? "/opt/" + name_ : request_.prefix;
    while (prefix_.size() > 1 && prefix_.back() == '/')
        prefix_.pop_back();
    const std::string given = "--prefix '" + request_.prefix + "': ";
    if (prefix_[0] != '/' && prefix_.compare(0, 2, "$(") != 0)
        return fail(exit_usage, "usage",
                    given + "give an absolute path, or one that begins with $(name).");
    if ((prefix_ + "/").find("/../") != std::string::npos)
        return fail(exit_usage, "usage", given + "give a path without '..'.");
    if (!is_utf8(prefix_))
        return fail(exit_usage, "usage", given + "a definition is UTF-8, and this is not.");
    if (output_ != km::pathname(output_.c_str()).mbcs_str())
        return fail(exit_usage, "usage",
                    "-o '" + output_ +
                        "': give a name without '\\', and without a blank or '/' at " +
                        "its ends.");
    struct stat about {};
    if (!request_.force && ::lstat(output_.c_str(), &about) == 0)
        return fail(exit_failed, "output",
                    output_ + " is there already. Give --force to replace it, or another -o FILE.");
    return true;
}

bool writer::check_entries() {
    std::erase_if(all_, [this](const tree_entry& one) {
        return one.what == tree_kind::file && is_same_file(in_tree(one.path), output_);
    });
    for (const tree_entry& one : all_) {
        std::error_code error;
        const std::string target =
            one.what == tree_kind::link ? fs::read_symlink(in_tree(one.path), error).string() : "";
        if (error)
            return fail(exit_failed, "read",
                        in_tree(one.path) + " cannot be looked at: " + error.message() + ".");
        if (!is_utf8(one.path) || !is_utf8(target))
            return fail(exit_failed, "name",
                        in_tree(one.path) + (is_utf8(one.path) ? ": the target of the link" : "") +
                            ": a name that is not UTF-8 cannot stand in a definition. Rename it, "
                            "or pack the tree with 'kmctl build DIR'.");
        if (target.find("$(") != std::string::npos)
            return fail(exit_failed, "name",
                        in_tree(one.path) +
                            ": a target of a link with '$(' would be taken for a variable.");
    }
    return true;
}

// A definition beside the tree or above it finds the files by itself.
void writer::place_sources() {
    std::error_code error;
    const fs::path parent = fs::path(output_).parent_path();
    const fs::path from = fs::canonical(parent.empty() ? "." : parent, error);
    if (error)
        return;
    const fs::path tree = fs::canonical(request_.source, error);
    const std::string way = tree.lexically_relative(from).string();
    beside_ = !error && !way.empty() && way != ".." && way.compare(0, 3, "../") != 0 &&
              is_utf8(way) && way.find("$(") == std::string::npos;
    if (beside_ && way != ".")
        before_ = way + "/";
}

void writer::write_head() {
    const std::string file = shell_word(output_), tree = shell_word(request_.source);
    text_ = filled(head_text, {{'n', definition_value(name_)},
                               {'v', first_version},
                               {'d', shown(own_name(request_.source))},
                               {'f', file.empty() ? "FILE" : file},
                               {'b', beside_ ? "" : " --base " + (tree.empty() ? "DIR" : tree)}});
}

std::string writer::on_machine(const std::string& path) const {
    if (path.empty())
        return prefix_;
    return prefix_ == "/" ? "/" + path : prefix_ + "/" + path;
}

void writer::write_stanza(const tree_entry& one) {
    const bool is_link = one.what == tree_kind::link;
    text_ += one.what == tree_kind::directory ? "  add_directory {\n"
             : is_link                        ? "  add_link {\n"
                                              : "  add_file {\n";
    text_ += "    path = " + definition_value(on_machine(one.path)) + "\n";
    if (one.what == tree_kind::file)
        text_ += "    source = " + definition_value(before_ + one.path) + "\n";
    if (is_link) {
        std::error_code error;
        text_ += "    target = " +
                 definition_value(fs::read_symlink(in_tree(one.path), error).string()) + "\n";
    } else {
        text_ += "    mode = " + octal(one.mode) + "\n";
    }
    text_ += "  }\n";
}

void writer::write_stanzas() {
    constexpr struct {
        tree_kind what;
        const char* about;
    } parts[] = {
        {tree_kind::directory,
         "  # Directories. A remove leaves those in which something else lies.\n"},
        {tree_kind::file, files_text},
        {tree_kind::link, "  # Symbolic links, which say \"target\".\n"},
    };
    for (const auto& part : parts) {
        if (!count(part.what))
            continue;
        text_ += std::string("\n") + part.about;
        for (const tree_entry& one : all_)
            if (one.what == part.what)
                write_stanza(one);
    }
    text_ += "}\n";
}

bool writer::store() {
    const auto write = [this](int descriptor) {
        return km::write_fully(descriptor, text_.data(), text_.size());
    };
    if (km::replace_durably(km::pathname(output_.c_str()), 0644, write))
        return true;
    return fail(exit_failed, "output",
                output_ + " cannot be written: " + std::strerror(errno) + ".");
}

void writer::report() {
    const package_id id{name_, first_version};
    const long files = count(tree_kind::file), directories = count(tree_kind::directory),
               links = count(tree_kind::link);
    result_.text = id.text() + ": " + std::to_string(files) + " files, " +
                   std::to_string(directories) + " directories, " + std::to_string(links) +
                   " links, in " + output_;
    result_.package = package_facts{id.name, id.version, "", ""};
    result_.data["file"] = output_;
    result_.data["files"] = files;
    result_.data["directories"] = directories;
    result_.data["links"] = links;
}

void writer::run() {
    if (!settle() || !scan_tree(request_.source, all_, result_) || !check_entries())
        return;
    struct stat about {};
    if (prefix_ != "/" && ::stat(request_.source.c_str(), &about) == 0)
        all_.insert(all_.begin(), {"", tree_kind::directory, about.st_mode & 07777});
    place_sources();
    write_head();
    write_stanzas();
    if (store())
        report();
}

} // namespace

std::string definition_value(const std::string& text) {
    const auto ends_word = [](char c) {
        return is_control(c) || c == ' ' || std::strchr("\"'#{}=\\", c);
    };
    if (!text.empty() && std::none_of(text.begin(), text.end(), ends_word))
        return text;
    std::string out = "\"";
    for (const char c : text) {
        const char* letter = c == '\n' ? "n" : c == '\t' ? "t" : c == '\r' ? "r" : nullptr;
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(c));
        if (letter)
            out += std::string("\\") + letter;
        else if (is_control(c))
            out += escape;
        else
            out += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
    }
    return out + "\"";
}

void init_definition(const init_request& request, outcome& result) {
    writer(request, result).run();
}

} // namespace kmhost
