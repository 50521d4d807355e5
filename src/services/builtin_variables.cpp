// builtin_variables: values of this machine and of the product
// no format
// invariants: a name of `always_defined` is never undefined for a check; nothing here fails hard
#include "builtin_variables.h"

#include "base/mrtwrap.h"
#include "base_configuration.h"
#include "trclog.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <sys/utsname.h>
#include <unistd.h>

namespace km {

built_in_variable_list* built_in_variable_list::singleton = nullptr;

namespace {

// The second group has values on other platforms only: a definition that names one is checked here
// but meant for there.
constexpr const char16_t* always_defined[] = {u"hostname",
                                              u"home_path",
                                              u"computer_name",
                                              u"os_family",
                                              u"os_name",
                                              u"os_version",
                                              u"os_release",
                                              u"os_architecture",
                                              u"temp_dir",
                                              u"product_dir",
                                              u"ep_label",

                                              u"ep_label_regionid",
                                              u"system_dir",
                                              u"system16_dir",
                                              u"system_root",
                                              u"system_drive",
                                              u"user_domain",
                                              u"user_name",
                                              u"user_profile_dir",
                                              u"user_shell_desktop",
                                              u"user_shell_start_menu",
                                              u"user_shell_programs",
                                              u"user_shell_startup",
                                              u"all_users_shell_desktop",
                                              u"all_users_shell_start_menu",
                                              u"all_users_shell_programs",
                                              u"all_users_shell_startup",
                                              u"program_files",
                                              u"common_files"};

bool is_always_defined(const ustring& name) {
    return std::any_of(std::begin(always_defined), std::end(always_defined),
                       [&](const char16_t* known) { return name == ustring(known); });
}

} // namespace

built_in_variable_list::built_in_variable_list() { build(); }

void built_in_variable_list::build() {
    KM_TRACE_FUNCTION("built_in_variable_list::build");
    char host[257] = "";
    if (::gethostname(host, sizeof host - 1) == 0)
        set_value(u"hostname", host);
    else
        KM_TRACE(trace_warning, "common", "Failure to get the hostname");
    if (const char* home = cpl_getenv("HOME"))
        set_value(u"home_path", home);
    else
        KM_TRACE(trace_warning, "common", "Failure to get the home_path");
    build_system();
    set_value(u"os_family", u"UNIX");
    set_value(u"os_architecture", u"IX86");
    set_value(u"temp_dir", u"/tmp");
    set_value(u"product_dir", pathname(base_configuration().get_var(u"product_dir")).get_text());
    KM_TRACE(trace_warning, "common", "Failure to get the ep_label");
}

void built_in_variable_list::build_system() {
    utsname system;
    if (::uname(&system) < 0) {
        KM_TRACE(trace_warning, "common", "uname failed");
        return;
    }
    set_value(u"computer_name", system.nodename);
    set_value(u"os_name", system.sysname);
    set_value(u"os_version", system.version);
    set_value(u"os_release", system.release);
}

ustring* built_in_variable_list::check_defined(const ustring& name) {
    if (is_always_defined(name)) {
        ustring* value = own_value(name);
        return value ? value : new ustring;
    }
    return resolved(get_next() ? get_next()->check_defined(name) : nullptr);
}

built_in_variable_list* built_in_variable_list::get_list() {
    if (!singleton)
        singleton = new built_in_variable_list;
    return singleton;
}

void built_in_variable_list::terminate() {
    delete singleton;
    singleton = nullptr;
}

ustring built_in_variable_list::get_var(const ustring& name) {
    const std::unique_ptr<ustring> value(get_list()->get_value(name));
    return value ? *value : ustring();
}

} // namespace km
