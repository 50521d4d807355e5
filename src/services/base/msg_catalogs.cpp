// base/msg_catalogs: translated texts from catalogue files
// format: message catalogues of the system, made by gencat:
//   magic(4) size(4) depth(4), two tables of size * depth rows set+1(4) key(4) offset(4), the first
//   little-endian, the second big-endian, then the texts, each with a NUL; a row with set 0 is
//   free. The head is in the order of the machine that wrote it, which the magic tells.
// invariants: a failed open is no error and is remembered; a damaged file is no catalogue (the
// system's own reader trusts it and dies of it)
#include "base/msg_catalogs.h"

#include "base/uxl.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace km {

namespace {

const char usual_path[] = "/nlslib/%L/%N.cat:/nlslib/%N/%L";
constexpr int absent = -1;
constexpr off_t largest_catalogue = 16 << 20;

std::string& default_path() {
    static std::string path = usual_path;
    return path;
}

// Where the text of a set and key begins in the bytes of the file.
using texts_by_number = std::map<std::pair<std::uint32_t, std::uint32_t>, size_t>;

struct cached {
    std::string path;
    bool is_catalogue;
    std::string bytes;
    texts_by_number texts;
};

std::vector<cached>& cache() {
    static std::vector<cached> all;
    return all;
}

int place_of(const std::string& path) {
    const auto& all = cache();
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].path == path)
            return static_cast<int>(i);
    return absent;
}

int usable(int place) {
    return place >= 0 && cache()[static_cast<size_t>(place)].is_catalogue ? place : absent;
}

bool read_file(const char* path, std::string& bytes) {
    const int in = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (in < 0)
        return false;
    struct stat about {};
    bool good =
        ::fstat(in, &about) == 0 && S_ISREG(about.st_mode) && about.st_size <= largest_catalogue;
    char block[65536];
    for (ssize_t got = 1; good && got > 0;) {
        got = ::read(in, block, sizeof block);
        good = got >= 0 && static_cast<off_t>(bytes.size()) + got <= largest_catalogue;
        if (good)
            bytes.append(block, static_cast<size_t>(got));
    }
    ::close(in);
    return good;
}

std::uint32_t number_at(const std::string& bytes, size_t at, bool big_endian) {
    std::uint32_t number = 0;
    for (size_t i = 0; i < 4; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[at + (big_endian ? i : 3 - i)]);
    return number;
}

// False if it is no catalogue, or a damaged one.
bool parse(const std::string& bytes, texts_by_number& texts) {
    constexpr std::uint32_t magic = 0x960408de;
    constexpr size_t head_size = 12, row_size = 12;
    if (bytes.size() < head_size)
        return false;
    const bool big_endian = number_at(bytes, 0, true) == magic;
    if (!big_endian && number_at(bytes, 0, false) != magic)
        return false;
    const std::uint64_t rows =
        std::uint64_t{number_at(bytes, 4, big_endian)} * number_at(bytes, 8, big_endian);
    if (rows > (bytes.size() - head_size) / (2 * row_size))
        return false;
    const size_t first_text = head_size + 2 * row_size * rows;
    const size_t last_end = bytes.rfind('\0');
    for (size_t at = head_size; at < head_size + row_size * rows; at += row_size) {
        const std::uint32_t set = number_at(bytes, at, false);
        if (set == 0)
            continue;
        const size_t text = first_text + number_at(bytes, at + 8, false);
        if (last_end == std::string::npos || text > last_end)
            return false;
        texts[{set - 1, number_at(bytes, at + 4, false)}] = text;
    }
    return true;
}

struct language_parts {
    std::string whole, language, territory, codeset;
};

language_parts split(const std::string& name) {
    language_parts parts{name, name, "", ""};
    if (const auto dot = parts.language.find('.'); dot != std::string::npos) {
        parts.codeset = parts.language.substr(dot + 1);
        parts.language.erase(dot);
    }
    if (const auto line = parts.language.find('_'); line != std::string::npos) {
        parts.territory = parts.language.substr(line + 1);
        parts.language.erase(line);
    }
    return parts;
}

std::string expanded(const std::string& element, const std::string& name,
                     const language_parts& parts) {
    std::string out;
    for (size_t i = 0; i < element.size(); ++i) {
        if (element[i] != '%' || i + 1 == element.size()) {
            out += element[i];
            continue;
        }
        switch (element[++i]) {
        case 'L':
            out += parts.whole;
            break;
        case 'N':
            out += name;
            break;
        case 'l':
            out += parts.language;
            break;
        case 't':
            out += parts.territory;
            break;
        case 'c':
            out += parts.codeset;
            break;
        default:
            out += element[i];
        }
    }
    return out;
}

int search(const std::string& name, const language_parts& parts) {
    const char* set = std::getenv("NLSPATH");
    const std::string path = set && *set ? set : default_path();
    for (size_t start = 0; start <= path.size();) {
        size_t end = path.find_first_of(":;", start);
        end = end == std::string::npos ? path.size() : end;
        if (end > start) {
            const int found =
                my_addCat(expanded(path.substr(start, end - start), name, parts).c_str());
            if (found != absent)
                return found;
        }
        start = end + 1;
    }
    return absent;
}

} // namespace

int my_cacheIndex(const char* path) { return usable(place_of(path)); }

int my_addCat(const char* path) {
    const int known = place_of(path);
    if (known != absent)
        return usable(known);
    if (::access(path, R_OK) != 0)
        return absent;
    cached fresh{path, false, {}, {}};
    fresh.is_catalogue = read_file(path, fresh.bytes) && parse(fresh.bytes, fresh.texts);
    cache().push_back(std::move(fresh));
    return usable(static_cast<int>(cache().size()) - 1);
}

int my_catopen(const char* catalogue, int) {
    if (std::strchr(catalogue, '/'))
        return my_addCat(catalogue);
    const char* language = nullptr;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES"})
        if (!language || !*language)
            language = std::getenv(variable);
    if (!language || !*language)
        language = uxl_os_lang_name();
    const std::string name = uxl_canonical_lang(language);
    const int found = search(catalogue, split(name));
    if (found != absent || name.size() <= 2)
        return found;
    return search(catalogue, split(name.substr(0, 2)));
}

const char* my_catgets(int catalogue, int set, long key, const char* missing) {
    const auto count = static_cast<int>(cache().size());
    if (catalogue >= count || usable(catalogue) == absent || set < 0 || key < 0 || key > INT_MAX)
        return missing;
    const cached& one = cache()[static_cast<size_t>(catalogue)];
    const auto found =
        one.texts.find({static_cast<std::uint32_t>(set), static_cast<std::uint32_t>(key)});
    return found == one.texts.end() ? missing : one.bytes.c_str() + found->second;
}

bool get_msg(const char* catalogue, int set, long key, std::string& text) {
    const char* missing = "";
    const char* found = my_catgets(my_catopen(catalogue, 1), set, key, missing);
    if (found == missing)
        return false;
    text = found;
    return true;
}

void my_set_default_path(const char* path) { default_path() = path ? path : usual_path; }

void my_closeAll() { cache().clear(); }

} // namespace km
