// base/msg_catalogs: translated texts from catalogue files
// format: message catalogues of the system, made by gencat
// invariant: a failed open is no error and is remembered
#include "base/msg_catalogs.h"

#include "base/uxl.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <nl_types.h>
#include <unistd.h>

namespace km {

namespace {

const char default_path[] = "/nlslib/%L/%N.cat:/nlslib/%N/%L";
const nl_catd none = reinterpret_cast<nl_catd>(-1);

std::map<std::string, nl_catd>& cache() {
    static std::map<std::string, nl_catd> open;
    return open;
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

nl_catd my_addCat(const std::string& path) {
    auto known = cache().find(path);
    if (known != cache().end())
        return known->second;
    if (::access(path.c_str(), R_OK) != 0)
        return none;
    // The system's own search is not wanted: a name with a '/' is opened as it stands.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    return cache()[path] = ::catopen(file.c_str(), 0);
}

nl_catd search(const std::string& name, const language_parts& parts) {
    const char* set = std::getenv("NLSPATH");
    const std::string path = set && *set ? set : default_path;
    for (size_t start = 0; start <= path.size();) {
        size_t end = path.find_first_of(":;", start);
        end = end == std::string::npos ? path.size() : end;
        if (end > start) {
            const nl_catd found = my_addCat(expanded(path.substr(start, end - start), name, parts));
            if (found != none)
                return found;
        }
        start = end + 1;
    }
    return none;
}

nl_catd my_catopen(const char* catalogue) {
    if (std::strchr(catalogue, '/'))
        return my_addCat(catalogue);
    const char* language = nullptr;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES"})
        if (!language || !*language)
            language = std::getenv(variable);
    if (!language || !*language)
        language = uxl_os_lang_name();
    const std::string name = uxl_canonical_lang(language);
    const nl_catd found = search(catalogue, split(name));
    if (found != none || name.size() <= 2)
        return found;
    return search(catalogue, split(name.substr(0, 2)));
}

} // namespace

bool get_msg(const char* catalogue, int set, long key, std::string& text) {
    const nl_catd open = my_catopen(catalogue);
    if (open == none)
        return false;
    const char* missing = "";
    const char* found = ::catgets(open, set, static_cast<int>(key), missing);
    if (found == missing)
        return false;
    text = found;
    return true;
}

void my_closeAll() {
    for (auto& [path, open] : cache())
        if (open != none)
            ::catclose(open);
    cache().clear();
}

} // namespace km
