// base/mrtwrap: directories and environment of the runtime
// no format
// invariant: no text is longer than 1024 bytes
#include "base/mrtwrap.h"

#include "base/mem.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace km {

namespace {

constexpr size_t longest = 1024;

struct text_buffer {
    char bytes[longest + 1] = "";
    const char* set(const std::string& text) {
        const size_t n = text.size() < longest ? text.size() : longest;
        std::memcpy(bytes, text.data(), n);
        bytes[n] = 0;
        return bytes;
    }
};

struct known_globals {
    std::string run, bin, lib, cache_base;
    bool has_cache_base = false;
};

known_globals& known() {
    static known_globals only;
    return only;
}

std::string text_of(const char* text) { return text ? text : ""; }

std::string corrected(const std::string& path, int flags) {
    text_buffer copy;
    copy.set(path);
    return CorrectPath(copy.bytes, flags);
}

} // namespace

void mrt_set_globals(const mrt_globals* globals) {
    const mrt_globals none;
    const mrt_globals& from = globals ? *globals : none;
    known() = {text_of(from.run), text_of(from.bin), text_of(from.lib), text_of(from.cache_base),
               from.cache_base != nullptr};
}

const char* mrt_get_cache_base() {
    static text_buffer buffer;
    return known().has_cache_base ? buffer.set(known().cache_base) : nullptr;
}

const char* mrt_get_load_dir() {
    static text_buffer buffer;
    const char* dir = cpl_getenv("QEP_BINDIR");
    return buffer.set(corrected(dir ? dir : ".", correct_slashes | correct_doubled));
}

const char* stage() {
    static text_buffer buffer;
    return buffer.set(known().run + "/stage");
}

const char* upgradedir() {
    static text_buffer buffer;
    return buffer.set(known().bin + "/upgrade");
}

const char* temp() { return cpl_tmpdir(); }

const char* systemdir() { return ""; }

const char* bindir() {
    static text_buffer buffer;
    return buffer.set(known().bin);
}

const char* rundir() {
    static text_buffer buffer;
    return buffer.set(known().run);
}

const char* libdir() {
    static text_buffer buffer;
    return buffer.set(known().lib);
}

const char* uniqueidentifier() {
    static text_buffer buffer;
    std::string run = known().run;
    while (!run.empty() && run.back() == '/')
        run.pop_back();
    const auto slash = run.rfind('/');
    return buffer.set(slash == std::string::npos ? "<UNDEFINED IDENTIFIER>"
                                                 : run.substr(slash + 1));
}

const char* installbase() {
    static text_buffer buffer;
    std::string base = known().bin;
    for (int i = 0; i < 3; ++i) {
        const auto slash = base.rfind('/');
        base.erase(slash == std::string::npos ? 0 : slash);
    }
    return buffer.set(base);
}

const char* base_bindir() {
    static text_buffer buffer;
    return buffer.set(std::string(installbase()) + "/bin");
}

const char* installvol() { return "/"; }

const char* volume(int) { return "<UNKNOWN>"; }

const char* get_interp(int, int) { return "solaris2"; }

namespace {

struct named_value {
    const char* name;
    const char* (*value)();
};

const char* interp_value() { return get_interp(0, 2); }

const char* tools_value() {
    static text_buffer buffer;
    return buffer.set(corrected(std::string(base_bindir()) + "/tools", 3));
}

const char* msgcat_value() {
    static text_buffer buffer;
    return buffer.set(corrected(std::string(installbase()) + "/generic/msg_cat", 3));
}

constexpr named_value named_values[] = {
    {"INTERP", interp_value}, {"SYSTEM", systemdir},  {"TEMP", temp},
    {"STAGE", stage},         {"UPG", upgradedir},    {"BIN", bindir},
    {"LIB", libdir},          {"RUN", rundir},        {"UNID", uniqueidentifier},
    {"IBASE", installbase},   {"IDRIVE", installvol}, {"TOOLS", tools_value},
    {"MSGCAT", msgcat_value},
};

const char* find_value(const char* name) {
    for (const auto& row : named_values)
        if (std::strcmp(row.name, name) == 0)
            return row.value();
    if (!std::strstr(name, "VOL"))
        return nullptr;
    int number = 0;
    if (std::strlen(name) < 3 || std::sscanf(name + 2, "%2d", &number) != 1)
        number = 0;
    return volume(number);
}

} // namespace

int get_var_value(const char* name, char* out) {
    const char* value = find_value(name);
    if (!value)
        return -1;
    constexpr int longest_name = 50;
    return varncpy(out, value,
                   std::strcmp(name, "INTERP") ? static_cast<int>(longest) : longest_name);
}

int varncpy(char* to, const char* from, int most) {
    const size_t n = from && most > 0 ? ::strnlen(from, static_cast<size_t>(most)) : 0;
    if (n)
        std::memcpy(to, from, n);
    to[n] = 0;
    return static_cast<int>(n);
}

char* mrt_expand_variable(const char* name) {
    char* out = static_cast<char*>(mg_malloc(longest + 1));
    if (get_var_value(name, out) > 0)
        return out;
    mg_free(out);
    return nullptr;
}

char* CorrectPath(char* path, int flags) {
    char* to = path;
    for (const char* from = path; *from && from - path < static_cast<long>(longest); ++from) {
        char c = *from;
        if (c == '"' || c == '\'')
            continue;
        if (c == '\\' && (flags & correct_slashes))
            c = '/';
        if ((flags & correct_doubled) && c == '/' && to > path && to[-1] == '/')
            continue;
        *to++ = c;
    }
    *to = 0;
    return path;
}

const char* cpl_getenv(const char* name) { return std::getenv(name); }

const char* cpl_tmpdir() { return "/tmp"; }

} // namespace km
