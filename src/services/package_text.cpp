// package_text: text form of packages
// no format
// invariant: what is exported is read back by import
#include "base/msg_supp.h"
#include "exporter.h"
#include "importer.h"
#include "package.h"
#include "pair.h"
#include "time_text.h"
#include "variable_builder.h"
#include "variable_list.h"

#include <ctime>
#include <memory>

namespace km {

namespace {
// "name^1" with the version "2" is the package "name" of version "1.2".
void split_version_off(ustring& name, ustring& version) {
    const auto at = name.find(u'^');
    if (at == ustring::npos)
        return;
    version = name.substr(at + 1) + ustring(u".") + version;
    name = name.substr(0, at);
}

// A host that is told by kind loses the first thirteen characters, wherever the kind stood.
void strip_host_kind(ustring& host) {
    constexpr unsigned kind_length = 13;
    if (host.find(ustring(u"@ManagedNode:")) != ustring::npos)
        host.remove(0, kind_length);
    else if (host[0] == u'@')
        host.remove(0, 1);
}

void get_long(importer& from, const char* name, long& value) {
    int number = static_cast<int>(value);
    if (from.get_integer(name, &number))
        value = number;
}

void drop_object(importer& from, const char* name) {
    codable* object = nullptr;
    from.get_object(name, &object);
    delete object;
}
} // namespace

void cm_package::import(importer& from) {
    from.get_string("name", &name);
    from.get_string("title", &title);
    from.get_string("description", &description);
    get_long(from, "web_view_mode", web_view_mode);
    from.get_string("version", &version);
    split_version_off(name, version);
    from.get_string("copyright", &copyright);
    from.get_integer("undoable", &undoable);
    from.get_integer("committable", &committable);
    from.get_boolean("save_default_variables", &save_default_variables_flag);
    from.get_boolean("history_reset", &history_reset);
    drop_object(from, "creation_time");
    drop_object(from, "last_modification_time");
    creation_time = last_modification_time = std::time(nullptr);
    import_attributes(from);
    import_programs(from);
    import_lists(from);
    from.get_pathname("qep_before_program_path", &qep_before_program_path);
    from.get_string("qep_before_program_arguments", &qep_before_program_arguments);
    get_long(from, "qep_before_program_timeout", qep_before_program_timeout);
    from.get_pathname("qep_after_program_path", &qep_after_program_path);
    from.get_string("qep_after_program_arguments", &qep_after_program_arguments);
    get_long(from, "qep_after_program_timeout", qep_after_program_timeout);
    cm_composite_command::import(from);
}

void cm_package::import_attributes(importer& from) {
    from.get_pathname("spb_path", &spb_path);
    if (from.get_string("source_host_name", &source_host_name))
        strip_host_kind(source_host_name);
    from.get_pathname("stage_area", &stage_area);
    from.get_boolean("move_removing_host", &move_removing_host);
    from.get_boolean("no_check_source_host", &no_check_source_host);
    from.get_boolean("lenient_distribution", &lenient_distribution);
    from.get_string("default_operation", &default_operation);
    from.get_integer("server_mode", &server_mode);
    if (from.get_integer("operation_mode", &operation_mode))
        set_operation_option(operation_mode);
    from.get_pathname("log_path", &log_path);
    from.get_integer("log_mode", &log_mode);
    from.get_integer("log_user_id", &log_user_id);
    from.get_boolean("post_notice", &post_notice);
    from.get_string("mail_id", &mail_id);
}

void cm_package::import_programs(importer& from) {
    from.get_pathname("before_program_path", &before_program_path);
    from.get_pathname("before_input_path", &before_input_path);
    get_long(from, "before_as_uid", before_as_uid);
    from.get_boolean("skip_non_zero", &skip_non_zero);
    from.get_pathname("after_program_path", &after_program_path);
    from.get_pathname("after_input_path", &after_input_path);
    get_long(from, "after_as_uid", after_as_uid);
    from.get_string("before_prog_env", &before_prog_env);
    from.get_string("after_prog_env", &after_prog_env);
    from.get_boolean("no_chk_on_rm", &no_chk_on_rm);
    if (from.get_string("log_host_name", &log_host_name))
        strip_host_kind(log_host_name);
    get_long(from, "log_gid", log_gid);
}

void cm_package::import_lists(importer& from) {
    codable* log = nullptr;
    if (from.get_object("log_object_list", &log)) {
        delete log_object_list;
        log_object_list = dynamic_cast<km::log_object_list*>(log);
        if (!log_object_list)
            delete log;
    }
    // Without a list of its own the package gets an empty one: never that of an earlier import.
    codable* defaults = nullptr;
    from.get_object("default_variables", &defaults);
    auto* list = dynamic_cast<variable_list*>(defaults);
    if (!list) {
        delete defaults;
        list = new variable_list;
    }
    variables = variable_list_builder::get_importer_variables(list);
    from.get_integer("versioning_type", &versioning_type);
    from.get_integer("package_type", &package_type);
    from.get_string("dependency", &dependency);
    get_long(from, "sharing_control", sharing_control);
    codable* nested = nullptr;
    if (from.get_object("nested_software_package", &nested)) {
        if (auto* ids = dynamic_cast<nested_package_list*>(nested))
            set_package_id_list(*ids, 1);
        delete nested;
    }
    if (!nested_packages.holds(name, version))
        nested_packages.insert(new pair(name, version), 0);
}

namespace {
ustring time_text(std::time_t seconds) {
    char text[80] = "";
    get_time_stamp(seconds, text, sizeof text);
    ustring stamp(text);
    return stamp.strip(ustring::trailing);
}
} // namespace

void cm_package::export_(exporter& to) const {
    to.begin_stanza("package");
    to.put_string("name", name);
    to.put_string("title", title);
    to.put_string("description", description);
    to.put_string("version", version);
    to.put_string("copyright", copyright);
    to.put_integer("web_view_mode", static_cast<int>(web_view_mode));
    to.put_integer("undoable", undoable);
    to.put_integer("committable", committable);
    to.put_boolean("history_reset", history_reset);
    to.put_boolean("save_default_variables", save_default_variables_flag);
    to.put_string("creation_time", time_text(creation_time));
    to.put_string("last_modification_time", time_text(last_modification_time));
    const variable_list* defaults = variables ? variables->get_defaults() : nullptr;
    if (defaults && defaults->size())
        to.put_object("default_variables", defaults);
    if (log_object_list)
        to.put_object("log_object_list", log_object_list);
    to.put_pathname("spb_path", spb_path);
    ustring host = source_host_name;
    if (host[0] == u'@')
        host.remove(0, 1);
    to.put_string("source_host_name", host);
    to.put_pathname("stage_area", stage_area);
    to.put_boolean("move_removing_host", move_removing_host);
    to.put_boolean("no_check_source_host", no_check_source_host);
    to.put_boolean("lenient_distribution", lenient_distribution);
    to.put_string("default_operation", default_operation);
    to.put_integer("server_mode", server_mode);
    to.put_integer("operation_mode", operation_mode);
    to.put_pathname("log_path", log_path);
    if (log_mode != -1)
        to.put_integer("log_mode", log_mode);
    if (log_user_id != -1)
        to.put_integer("log_user_id", log_user_id);
    if (log_gid != -1)
        to.put_integer("log_gid", static_cast<int>(log_gid));
    to.put_boolean("post_notice", post_notice);
    to.put_string("mail_id", mail_id);
    export_programs(to);
    cm_composite_command::export_(to);
    to.end_stanza();
}

void cm_package::export_programs(exporter& to) const {
    to.put_pathname("before_program_path", before_program_path);
    to.put_pathname("before_input_path", before_input_path);
    to.put_integer("before_as_uid", static_cast<int>(before_as_uid));
    to.put_boolean("skip_non_zero", skip_non_zero);
    to.put_pathname("after_program_path", after_program_path);
    to.put_pathname("after_input_path", after_input_path);
    to.put_integer("after_as_uid", static_cast<int>(after_as_uid));
    to.put_string("before_prog_env", before_prog_env);
    to.put_string("after_prog_env", after_prog_env);
    to.put_boolean("no_chk_on_rm", no_chk_on_rm);
    to.put_string("log_host_name", log_host_name);
    if (nested_packages.size() >= 2)
        to.put_object("nested_software_package", &nested_packages);
    to.put_integer("versioning_type", versioning_type);
    to.put_integer("package_type", package_type);
    to.put_string("dependency", dependency);
    to.put_integer("sharing_control", static_cast<int>(sharing_control));
    to.put_pathname("qep_before_program_path", qep_before_program_path);
    if (qep_before_program_path.is_valid()) {
        to.put_string("qep_before_program_arguments", qep_before_program_arguments);
        to.put_integer("qep_before_program_timeout", static_cast<int>(qep_before_program_timeout));
    }
    to.put_pathname("qep_after_program_path", qep_after_program_path);
    if (qep_after_program_path.is_valid()) {
        to.put_string("qep_after_program_arguments", qep_after_program_arguments);
        to.put_integer("qep_after_program_timeout", static_cast<int>(qep_after_program_timeout));
    }
}

} // namespace km
