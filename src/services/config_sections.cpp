// config_sections: building of the settings sections
// format: docs/formats/settings.md
// invariant: the settings file is read and written under its lock alone
#include "base_configuration.h"

#include "engine_exit.h"
#include "file.h"
#include "lockfile.h"
#include "pair.h"
#include "trclog.h"
#include "variable_list.h"
#include "win_profile.h"

#include <cstdio>
#include <cstdlib>

namespace km {

namespace {

const char16_t mobile[] = u"#MOBILE";
const char16_t generic[] = u"#GENERIC";
const char16_t server[] = u"#SERVER";
const char16_t import_line[] = u"import_libraries=spd,libkmimp";
const char16_t custom_line[] = u"custom_section=true";

void take_lock(semaphore& lock) {
    if (lock.wait2(-1) == semaphore::timed_out)
        engine_exit(0, "the settings are locked by another process");
}

pathname backup_of(const pathname& settings) {
    return settings.get_parent() + ustring(u"znpis.bak");
}

// The backup has no permission bits; its owner may give them back for the moment of the copy.
void handle_backup_file(const pathname& settings) {
    file backup(backup_of(settings)), target(settings);
    if (target.exists() || !backup.exists())
        return;
    backup.set_file_attributes(0600);
    if (backup.copy(target, 0))
        target.set_file_attributes(0600);
    backup.set_file_attributes(0);
}

void backup_configuration_file(const pathname& settings) {
    file source(settings), backup(backup_of(settings));
    backup.remove(0);
    if (source.exists() && source.copy(backup, 0))
        backup.set_file_attributes(0x884000);
}

void add(vector& lines, const char16_t* key, const ustring& value) {
    lines.push_back(new ustring(ustring(key) + ustring(u"=") + value));
}

ustring below(const pathname& dir, const char16_t* name) {
    return (dir + ustring(name)).get_text();
}

void initialize_variables(const pathname& dir, vector& lines) {
    file(dir + ustring(u"work")).mk_tree();
    add(lines, u"product_dir", dir.get_text());
    add(lines, u"working_dir", below(dir, u"work"));
    add(lines, u"backup_dir", below(dir, u"backup"));
    add(lines, u"trace_level", u"0");
    add(lines, u"trace_size", u"1000000");
    add(lines, u"send_timeout", u"300");
    add(lines, u"autopack_dir", below(dir, u"autopack"));
    ustring staging = below(dir.get_dir(), u"service");
    staging.strip(ustring::both, u'/');
    add(lines, u"staging_dir", staging);
    add(lines, u"user_file_variables", below(dir, u"znpis.var"));
    lines.push_back(new ustring(import_line));
}

// The first section of an endpoint; false if there is none.
bool first_endpoint_section(win_profile& settings, ustring& found) {
    vector names;
    settings.get_section_names(names);
    for (int i = 0; i < names.size(); ++i) {
        const auto& name = *names.at<ustring>(i);
        if (name == ustring(server) || name == ustring(generic) || name == ustring(mobile) ||
            settings.item_exists(custom_line, name))
            continue;
        found = name;
        return true;
    }
    return false;
}

void create_disconnected_section(win_profile& settings, const ustring& section) {
    vector lines;
    ustring other;
    const char* product = std::getenv("ZNPIS_PRODUCT_DIR");
    if (product && *product)
        initialize_variables(pathname(product), lines);
    else if (!(section == ustring(mobile)))
        initialize_variables(get_default_prod_dir() + section, lines);
    else if (first_endpoint_section(settings, other))
        settings.get_section_contents(other, lines);
    else
        initialize_variables(get_default_prod_dir(), lines);
    settings.create_section(section, lines);
    if (!(section == ustring(mobile)))
        settings.create_item(custom_line, section, 0);
}

// Puts a section behind the file as it stands on disk, and reads the file again.
void append_section(win_profile& settings, const ustring& section, const vector& lines,
                    const char* before) {
    settings.commit_changes();
    if (FILE* out = std::fopen(settings.get_path().mbcs_str(), "a+e")) {
        std::fprintf(out, "%s[%s]\n", before, section.mbcs_str());
        for (int i = 0; i < lines.size(); ++i)
            std::fprintf(out, "%s\n", lines.at<ustring>(i)->mbcs_str());
        std::fclose(out);
    }
    settings.read(1);
}

void create_endpoint_section(win_profile& settings, const ustring& section, unsigned short mode) {
    vector lines;
    ustring endpoint;
    auto from_endpoint = [&] {
        if (first_endpoint_section(settings, endpoint))
            settings.get_section_contents(endpoint, lines);
    };
    auto from_mobile = [&] { settings.get_section_contents(mobile, lines); };
    if (mode == 2)
        from_endpoint();
    if (lines.empty())
        from_mobile();
    if (mode == 1) // the first value of a key counts: those of #MOBILE win
        from_endpoint();
    append_section(settings, section, lines, "\n");
}

void create_generic_section(win_profile& settings) {
    if (!settings.section_exists(generic))
        append_section(settings, generic, vector(), "");
}

void drop_damaged_section(win_profile& settings, const ustring& section) {
    vector lines;
    settings.get_section_contents(section, lines);
    if (!is_connected() && settings.section_exists(section) && lines.size() < 2)
        settings.delete_section(section, 1);
}

// An older file does not know of import libraries.
void upgrade_section(win_profile& settings, const ustring& section) {
    if (!settings.section_exists(section) ||
        settings.item_with_key_exists(u"import_libraries", section))
        return;
    vector lines;
    settings.get_section_contents(section, lines);
    lines.push_back(new ustring(import_line));
    settings.create_section(section, lines);
}

} // namespace

void base_configuration::load_configuration_variables(win_profile& from, const ustring& section,
                                                      variable_list* into) {
    vector lines;
    from.get_section_contents(section, lines);
    for (int i = 0; i < lines.size(); ++i) {
        const pair one(*lines.at<ustring>(i));
        into->put(one.get_key(), one.get_value());
    }
}

void base_configuration::initialize() {
    const pathname name = get_configuration_file().get_absolute_path();
    semaphore lock(name, 0);
    take_lock(lock);
    handle_backup_file(name);
    win_profile settings(name);
    const ustring section = get_current_section();
    drop_damaged_section(settings, section);
    if (!settings.section_exists(section)) {
        if (is_connected())
            create_endpoint_section(settings, section, ep_init_mode);
        else
            create_disconnected_section(settings, section);
    }
    upgrade_section(settings, section);
    deinitialize();
    auto* all = new variable_list;
    load_configuration_variables(settings, section, all);
    create_generic_section(settings);
    load_configuration_variables(settings, generic, all);
    _variable_list = all;
    backup_configuration_file(name);
    const pathname working(get_var(u"working_dir"));
    if (working.is_valid() && !file(working).exists())
        file(working).mk_tree();
    settings.commit_changes();
    lock.signal();
}

void base_configuration::deinitialize() {
    delete _variable_list;
    _variable_list = nullptr;
}

void base_configuration::set_autopack_directory(const ustring& dir) {
    KM_TRACE_FUNCTION("base_configuration::set_autopack_directory");
    const pathname name = get_configuration_file().get_absolute_path();
    semaphore lock(name, 0);
    take_lock(lock);
    win_profile settings(name);
    settings.create_item(ustring(u"autopack_dir=") + dir, get_current_section(), 1);
    settings.commit_changes();
    lock.signal();
}

} // namespace km
