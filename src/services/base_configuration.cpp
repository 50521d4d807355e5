// base_configuration: the settings and their defaults
// format: docs/formats/settings.md
// invariant: every getter answers, whatever stands in the file
#include "base_configuration.h"

#include "file.h"
#include "tokens.h"
#include "trclog.h"
#include "variable_list.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace km {

variable_list* base_configuration::_variable_list = nullptr;
unsigned short base_configuration::ep_init_mode = 0;

namespace {

long to_number(const ustring& text) { return std::strtol(text.mbcs_str(), nullptr, 10); }

int to_int(long value) {
    return static_cast<int>(
        std::clamp(value, static_cast<long>(INT_MIN), static_cast<long>(INT_MAX)));
}

char* to_malloc(const ustring& text) { return ::strdup(text.mbcs_str()); }

constexpr long least_checkpoint = 1000000;
constexpr long most_checkpoint = 2000000000;

} // namespace

ustring base_configuration::get_var(const ustring& key) {
    if (!_variable_list)
        initialize();
    const std::unique_ptr<ustring> value(_variable_list->get_value(key));
    return value ? *value : ustring();
}

ustring base_configuration::get_var_match_pattern(const ustring& key) {
    if (!_variable_list)
        initialize();
    const std::unique_ptr<ustring> value(_variable_list->get_value_match_pattern(key, 0));
    return value ? *value : ustring();
}

ustring base_configuration::value_or(const char16_t* key, const char* fallback) {
    const ustring value = get_var(key);
    return value.empty() ? ustring(fallback) : value;
}

int base_configuration::number(const char16_t* key, const char* fallback) {
    return to_int(to_number(value_or(key, fallback)));
}

int base_configuration::get_trace_level() { return number(u"trace_level", "0"); }

unsigned long base_configuration::get_trace_size() {
    return static_cast<unsigned long>(number(u"trace_size", "1000000"));
}

int base_configuration::get_trace_style() { return number(u"trace_style", "0"); }
char* base_configuration::get_trace_tags() { return to_malloc(value_or(u"trace_tags", "common")); }
int base_configuration::get_gw_timeout() { return number(u"send_timeout", "300"); }
ustring base_configuration::get_inventory_scan_file() { return get_var(u"inventory_scan_file"); }

ustring base_configuration::get_import_library(const ustring& extension) {
    KM_TRACE_FUNCTION("base_configuration::get_import_library");
    vector entries;
    tokenize(value_or(u"import_libraries", "spd,libkmimp"), entries, u';');
    ustring wanted(extension);
    wanted.strip(ustring::leading, u'.');
    wanted += u',';
    for (int i = 0; i < entries.size(); ++i) {
        const auto* entry = entries.at<ustring>(i);
        if (entry->find(wanted) == 0)
            return entry->substr(wanted.length());
    }
    if (entries.empty())
        return ustring();
    const auto* first = entries.at<ustring>(0);
    const auto comma = first->find(u',');
    return comma == ustring::npos ? ustring() : first->substr(comma + 1);
}

long base_configuration::get_checkpoint_buffer_size() {
    const long size = to_number(get_var(u"checkpoint_buffer_size"));
    return size == 0 ? 0 : std::clamp(size, least_checkpoint, most_checkpoint);
}

int base_configuration::is_checkpoint_disabled() {
    const ustring value = get_var(u"checkpoint_buffer_size");
    return !value.empty() && to_number(value) == 0;
}

namespace {

int yes_or_no(ustring value, int fallback) {
    value.to_lower();
    return value.empty() ? fallback : value == ustring(u"y") || value == ustring(u"yes");
}

} // namespace

int base_configuration::get_resinit_one_reboot() {
    return yes_or_no(get_var(u"resinit_one_reboot"), 1);
}

int base_configuration::get_resinit_reboot_forced() {
    return yes_or_no(get_var(u"resinit_reboot_forced"), 0);
}

int base_configuration::get_restart_timeout() {
    const int seconds = number(u"nm_restart_timeout", "180");
    return seconds < 0 ? 60000 : seconds;
}

int base_configuration::get_profiler_enabled() { return number(u"profiler_enabled", "0") != 0; }
int base_configuration::get_profiler_buffer_size() { return number(u"profiler_buffer_size", "2"); }

int base_configuration::get_profiler_output_count_limit() {
    return number(u"profiler_max_stack_depth", "20");
}

int base_configuration::get_epsim_enabled() { return number(u"epsim_enabled", "0") != 0; }
int base_configuration::get_eptrace_level() { return number(u"ep_trace_level", "0"); }

unsigned long base_configuration::get_eptrace_size() {
    return static_cast<unsigned long>(number(u"ep_trace_size", "1000000"));
}

int base_configuration::get_eptrace_style() { return number(u"ep_trace_style", "0"); }

char* base_configuration::get_eptrace_tags() {
    return to_malloc(value_or(u"ep_trace_tags", "common"));
}

int base_configuration::get_eptrace_override() {
    return number(u"ep_trace_override_local_settings", "1") != 0;
}

char* base_configuration::get_use_ep_section() {
    return to_malloc(value_or(u"how_create_ep_sections", "clone_mobile"));
}

int base_configuration::get_notif_ext_dir(const ustring& name) {
    const ustring key = ustring(u"notify_ext_directly{") + name + ustring(u"}");
    const ustring value = get_var_match_pattern(key);
    return value.empty() ? 0 : value == ustring(u"y") ? 1 : 2;
}

namespace {

// Without a directory that was set, rules and libraries would come from wherever the super-user
// stands: such a path counts as not there.
bool is_trusted(const pathname& path) {
    return path.is_absolute() || ::geteuid() != 0 || std::getenv("SPEDITOR_LIB_PATH");
}

} // namespace

pathname base_configuration::get_rules_file() {
    KM_TRACE_FUNCTION("base_configuration::get_rules_file");
    const pathname path = get_cfg_files_path() + ustring(u"rules.spr");
    KM_TRACE(trace_info, "common", "rules file : '%s'", path.mbcs_str());
    return is_trusted(path) ? path : pathname();
}

pathname base_configuration::get_library_file() {
    KM_TRACE_FUNCTION("base_configuration::get_library_file");
    const pathname path = get_cfg_files_path() + ustring(u"libs.znp");
    KM_TRACE(trace_info, "common", "libs file : '%s'", path.mbcs_str());
    if (is_trusted(path) && file(path).exists())
        return path;
    KM_TRACE(trace_fatal, "common", "the 'libraries' file does not exist");
    return pathname();
}

ustring base_configuration::get_current_section() {
    const char* section = std::getenv("ZNPIS_INI_SECTION");
    return ustring(section && *section ? section : "#MOBILE");
}

} // namespace km
