// made_directories: what a package made or put into files of others, known also after a kill
// format: docs/formats/made-directories.md
// invariant: the note stands before what it tells of
#include "made_directories.h"

#include "base_configuration.h"
#include "durable.h"
#include "object_command.h"
#include "package.h"
#include "target_root.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace km {

namespace {

using paths = std::set<std::string>;
using texts = std::map<std::string, std::string>; // key and what went for it

struct note_list {
    paths directories;
    texts put;
    bool empty() const { return directories.empty() && put.empty(); }
    bool operator==(const note_list&) const = default;
};

// What the name of a file of notes is made of.
struct notes_owner {
    ustring name, version, description;
    std::int32_t is_backup = 0;

    bool is(const cm_package& package) const {
        return is_backup == package.is_backup_package && name == package.name &&
               version == package.version && description == package.description;
    }
};

struct notes {
    notes_owner owner;
    std::string file;
    note_list own;
    note_list left;
    paths expected; // directories that are not noted yet
    bool read = false;
};

notes& cached() {
    static notes only;
    return only;
}

std::string directory_of_notes() {
    return base_configuration().get_var(u"working_dir").mbcs_str() + std::string("/made/");
}

// No package is called so: a package's file has a '^' in its name.
std::string left_file() { return directory_of_notes() + "left"; }

std::string file_of(const cm_package& package) {
    ustring name, version;
    set_package_name_and_version(const_cast<cm_package&>(package), name, version);
    return made_file_of(name.mbcs_str(), version.mbcs_str());
}

// "+LENGTH:KEY FORMER" puts, "-KEY" drops, everything else is a path.
void take_note(const std::string& note, note_list& all) {
    if (note.empty())
        return;
    if (note[0] == '-') {
        all.put.erase(note.substr(1));
    } else if (note[0] == '+') {
        const size_t colon = note.find(':');
        const unsigned long length = std::strtoul(note.c_str() + 1, nullptr, 10);
        if (colon != std::string::npos && length <= note.size() - colon - 1)
            all.put[note.substr(colon + 1, length)] = note.substr(colon + 1 + length);
    } else {
        all.directories.insert(note);
    }
}

std::string put_note(const std::string& key, const std::string& former) {
    return "+" + std::to_string(key.size()) + ":" + key + former;
}

// A last note without its NUL was cut by a kill; what it tells of was not done yet.
note_list read_notes(const std::string& file) {
    note_list all;
    const int in = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return all;
    std::string pending;
    char block[8192];
    for (ssize_t got; (got = ::read(in, block, sizeof block)) > 0;) {
        for (ssize_t i = 0; i < got; ++i) {
            if (block[i] != '\0') {
                pending += block[i];
                continue;
            }
            take_note(pending, all);
            pending.clear();
        }
    }
    ::close(in);
    return all;
}

notes& notes_of(const cm_package& package) {
    notes& known = cached();
    if (known.read && known.owner.is(package))
        return known;
    std::string path = file_of(package);
    if (!known.read || known.file != path)
        known = {{}, path, read_notes(path), read_notes(left_file()), {}, true};
    known.owner = {package.name, package.version, package.description, package.is_backup_package};
    return known;
}

int write_notes(const std::string& file, const note_list& all) {
    if (all.empty())
        return ::unlink(file.c_str()) == 0 || errno == ENOENT;
    return replace_durably(pathname(file.c_str()), 0600, [&all](int out) {
        std::string text;
        for (const auto& path : all.directories)
            text.append(path).push_back('\0');
        for (const auto& [key, former] : all.put)
            text.append(put_note(key, former)).push_back('\0');
        return write_fully(out, text.data(), text.size());
    });
}

bool directory_stands(const std::string& path) {
    struct stat about {};
    return look_at(path, about) && S_ISDIR(about.st_mode);
}

// Without its file a text is gone for certain.
bool file_stands(const std::pair<const std::string, std::string>& text) {
    struct stat about {};
    return look_at(text.first.substr(0, text.first.find(": ")), about);
}

// Opens the notes of a package for more; a new file lasts in its directory.
int open_notes(const std::string& name) {
    const int flags = O_WRONLY | O_APPEND | O_CLOEXEC;
    int out = ::open(name.c_str(), flags);
    if (out >= 0 || errno != ENOENT)
        return out;
    const pathname directory = pathname(name.c_str()).get_parent();
    make_directories_durably(directory);
    out = ::open(name.c_str(), flags | O_CREAT, 0600);
    if (out < 0 || sync_directory(directory))
        return out;
    const int error = errno;
    ::close(out);
    errno = error;
    return -1;
}

int append_notes(notes& known, const std::vector<std::string>& more, bool flushed) {
    std::string text;
    for (const auto& note : more) // the NUL in front closes a note that was cut
        text.append(1, '\0').append(note).push_back('\0');
    const int out = open_notes(known.file);
    if (out < 0)
        return 0;
    const int done =
        write_fully(out, text.data(), text.size()) && (!flushed || sync_descriptor(out));
    const int error = errno;
    ::close(out);
    errno = error;
    for (const auto& note : more)
        if (done)
            take_note(note, known.own);
    return done;
}

} // namespace

std::string made_file_of(const std::string& name, const std::string& version) {
    return directory_of_notes() + name + "^" + version;
}

void expect_made_directory(const cm_package& package, const std::string& path) {
    notes& known = notes_of(package);
    if (!known.own.directories.count(path))
        known.expected.insert(path);
}

int note_made_directory(const cm_package& package, const std::string& path) {
    notes& known = notes_of(package);
    if (known.own.directories.count(path))
        return 1;
    known.expected.insert(path);
    if (!append_notes(known, {known.expected.begin(), known.expected.end()}, true)) {
        known.expected.erase(path);
        return 0;
    }
    known.expected.clear();
    return 1;
}

bool made_by(const cm_package& package, const std::string& path) {
    const notes& known = notes_of(package);
    return known.own.directories.count(path) || known.left.directories.count(path);
}

// On disk before the file is: the former text is nowhere else.
int note_text(const cm_package& package, const std::string& key, const std::string& former) {
    return text_noted_by(package, key, nullptr) ||
           append_notes(notes_of(package), {put_note(key, former)}, true);
}

bool text_noted_by(const cm_package& package, const std::string& key, std::string* former) {
    const notes& known = notes_of(package);
    for (const auto* all : {&known.own.put, &known.left.put})
        if (const auto at = all->find(key); at != all->end()) {
            if (former)
                *former = at->second;
            return true;
        }
    return false;
}

int drop_text_note(const cm_package& package, const std::string& key) {
    notes& known = notes_of(package);
    if (known.own.put.count(key) && !append_notes(known, {"-" + key}, false))
        return 0;
    return !known.left.put.erase(key) || write_notes(left_file(), known.left);
}

namespace {
int keep_left(const note_list& more) {
    const note_list old = read_notes(left_file());
    note_list left;
    for (const auto* all : {&old, &more}) {
        std::copy_if(all->directories.begin(), all->directories.end(),
                     std::inserter(left.directories, left.directories.end()), directory_stands);
        std::copy_if(all->put.begin(), all->put.end(), std::inserter(left.put, left.put.end()),
                     file_stands);
    }
    forget_made_directories();
    return left == old || write_notes(left_file(), left);
}
} // namespace

int hand_over_made_directories(const std::string& name, const std::string& version) {
    const std::string file = made_file_of(name, version);
    return keep_left(read_notes(file)) && (::unlink(file.c_str()) == 0 || errno == ENOENT);
}

void remove_empty_made_directories(const std::string& name, const std::string& version) {
    const paths made = read_notes(made_file_of(name, version)).directories;
    for (auto path = made.rbegin(); path != made.rend(); ++path) // contents before what holds them
        remove_name(*path, true);
}

int prune_left_directories() { return keep_left({}); }

void forget_made_directories() { cached() = {}; }

} // namespace km
