// config_location: where settings and directories lie
// no format
// invariant: nothing below a location that was set by the host is looked for elsewhere
#include "base_configuration.h"

#include "base/msg_supp.h"
#include "base/mrtwrap.h"
#include "engine_exit.h"
#include "file.h"
#include "trclog.h"

#include <cstdio>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace km {

namespace {

// Where the host moved the settings to; empty: nowhere. No destructor order matters to it.
pathname& moved_to() {
    static pathname directory;
    return directory;
}

[[noreturn]] void no_home() {
    spmessage message;
    message.add(602L);
    message.display(stderr);
    engine_exit(-1, "no home directory that can be read and written");
}

} // namespace

void set_configuration_location(const pathname& dir) {
    moved_to() = dir;
    base_configuration::deinitialize();
}

const char* get_user_home() {
    const char* home = std::getenv("HOME");
    if (!home || !*home) {
        const passwd* user = ::getpwuid(::getuid());
        home = user && user->pw_dir && *user->pw_dir ? user->pw_dir : nullptr;
    }
    return home && ::access(home, R_OK | W_OK) == 0 ? home : nullptr;
}

int is_connected() { return 0; }

void get_configuration_file_location(pathname& out) {
    if (moved_to().is_valid()) {
        out = moved_to();
        return;
    }
    if (::geteuid() == 0) {
        out = pathname("/etc/Ombrel");
        return;
    }
    const char* home = get_user_home();
    if (!home)
        no_home();
    out = pathname(home) + ustring(u".znpis");
}

pathname get_configuration_file() {
    pathname path;
    get_configuration_file_location(path);
    file directory(path);
    if (!directory.exists())
        directory.mk_tree();
    path += ustring(u"znpis.ini");
    file settings(path);
    unsigned long mode = 0;
    if (settings.exists() && settings.get_file_attributes(mode))
        settings.set_file_attributes((mode & 07777) | 0x8000);
    return path;
}

pathname get_default_prod_dir() {
    if (moved_to().is_valid())
        return moved_to();
    const char* cache = std::getenv("QEP_CACHEDIR");
    const bool privileged = cache && ::geteuid() == 0;
    pathname base;
    if (privileged) {
        base = pathname(cache);
        for (int i = 0; i < 4; ++i)
            --base;
    } else if (const char* home = get_user_home()) {
        base = pathname(home);
    }
    if (!base.is_valid())
        no_home();
    return base + ustring(privileged ? u"znpis" : u".znpis");
}

pathname base_configuration::get_cfg_files_path() {
    KM_TRACE_FUNCTION("base_configuration::get_cfg_files_path");
    const ustring section = get_current_section();
    KM_TRACE(trace_info, "common", "current section : '%s'", section.mbcs_str());
    if (section == ustring(u"#SERVER"))
        return pathname();
    const char* set = std::getenv("SPEDITOR_LIB_PATH");
    if (!is_connected() && set) {
        KM_TRACE(trace_info, "common", "file path : '%s'", set);
        return pathname(set);
    }
    const char* base = mrt_get_cache_base();
    if (!base) {
        KM_TRACE(trace_warning, "common",
                 "The mrt_get_cache_base() API failed.... try with getenv(\"QEP_CACHEDIR\")");
        base = std::getenv("QEP_CACHEDIR");
        if (!base)
            KM_TRACE(trace_fatal, "common",
                     "It was not possible to get the path of the QEP Cache Directory.");
    }
    KM_TRACE(trace_info, "common", "We need to get the INTERP environment variable");
    KM_TRACE(trace_info, "common", "INTERP = %s", get_interp(0, 2));
    pathname path(base ? base : "");
    path += ustring(u"lib");
    path += ustring(get_interp(0, 2));
    return path;
}

} // namespace km
