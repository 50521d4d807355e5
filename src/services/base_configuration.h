// base_configuration: the settings and their defaults
//
// All settings live in one file, "znpis.ini", in the configuration directory: "/etc/Ombrel" for the
// super-user, ".znpis" below the home directory for others, or where set_configuration_location()
// says. The current section ("ZNPIS_INI_SECTION", or "#MOBILE") wins over "#GENERIC". Every setting
// has a default, so that an empty file leaves a working system. The settings are read once, at the
// first question, under the lock "znpis.ini.sem"; later changes of the file reach a process only
// after deinitialize(). A lock that cannot be had ends the process with status 0; without a home
// directory it ends with status -1 behind message 602.
#pragma once

#include "pathname.h"
#include "vector.h"

namespace km {

class variable_list;
class win_profile;

class base_configuration {
  public:
    // The value, or empty.
    ustring get_var(const ustring& key);
    // The same where keys of the file are patterns.
    ustring get_var_match_pattern(const ustring& key);

    int get_trace_level();
    unsigned long get_trace_size();
    int get_trace_style();
    // malloc memory: the caller frees it.
    char* get_trace_tags();
    int get_gw_timeout();
    ustring get_inventory_scan_file();
    // Library that imports files of the extension; the first entry is the default.
    ustring get_import_library(const ustring& extension);
    // Bytes between checkpoints, 0 if not set, else 1000000 to 2000000000.
    long get_checkpoint_buffer_size();
    int is_checkpoint_disabled();
    int get_resinit_one_reboot();
    int get_resinit_reboot_forced();
    // Seconds; a negative value counts as 60000.
    int get_restart_timeout();
    int get_profiler_enabled();
    int get_profiler_buffer_size();
    int get_profiler_output_count_limit();
    int get_epsim_enabled();
    int get_eptrace_level();
    unsigned long get_eptrace_size();
    int get_eptrace_style();
    char* get_eptrace_tags(); // malloc memory
    int get_eptrace_override();
    char* get_use_ep_section(); // malloc memory
    // 0 not set, 1 "y", 2 any other value.
    int get_notif_ext_dir(const ustring& name);

    // Empty for the super-user if it would be looked for in the current directory.
    pathname get_rules_file();
    // Empty, with a fatal trace, if the file is not there; likewise for the super-user.
    pathname get_library_file();
    // Directory of the rules and libraries files; relative if nothing tells where it is.
    pathname get_cfg_files_path();
    static ustring get_current_section();
    void set_autopack_directory(const ustring& dir);
    static void set_ep_init_mode(unsigned short mode) { ep_init_mode = mode; }

    void initialize();
    static void deinitialize();
    // The first value that a key gets stays.
    void load_configuration_variables(win_profile& from, const ustring& section,
                                      variable_list* into);

  private:
    friend class configuration_sections;
    ustring value_or(const char16_t* key, const char* fallback);
    int number(const char16_t* key, const char* fallback);
    static variable_list* _variable_list;
    static unsigned short ep_init_mode;
};

// Directory of the settings. See the head of this file.
void get_configuration_file_location(pathname& out);
// Moves the settings to `dir`, and the product directory of new sections with them, so that all
// that the engine keeps (settings, working and backup directories) lies below it. Empty: back to
// the places above. Settings that were read already are forgotten.
void set_configuration_location(const pathname& dir);
// The settings file in its directory, which is made if it is missing.
pathname get_configuration_file();
// HOME, or the home directory of the user's entry; null if it cannot be read and written.
const char* get_user_home();
// 0: this is an installation without a connection to a gateway.
int is_connected();
pathname get_default_prod_dir();

} // namespace km
