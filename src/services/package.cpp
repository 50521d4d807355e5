// package: the package object
// no format
// invariants: a package deletes only what it made itself or took over; every object of
// its tree points to it
#include "package.h"

#include "base/msg_supp.h"
#include "dynamic_variables.h"
#include "engine_hooks.h"
#include "file.h"
#include "pair.h"
#include "trclog.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace km {

namespace {
template <class T> T* copy_of(const T* one) {
    return one ? static_cast<T*>(one->clone()) : nullptr;
}

bool says_yes(const char* variable, bool lower_too) {
    const char* text = std::getenv(variable);
    return text && (!std::strcmp(text, "YES") || (lower_too && !std::strcmp(text, "yes")));
}
} // namespace

cm_package::cm_package() : cm_composite_command(1) { init(); }

cm_package::cm_package(const cm_package& other) : cm_composite_command(other) {
    copy_values(other);
}

cm_package& cm_package::operator=(const cm_package& other) {
    if (this == &other)
        return *this;
    release();
    cm_composite_command::operator=(other);
    copy_values(other);
    return *this;
}

cm_package::~cm_package() {
    if (dynamic_variable_list::get_package() == this)
        dynamic_variable_list::set_package(nullptr);
    release();
}

void cm_package::adopt_input_channel(unzipping_channel* made) {
    own_input_channel_.reset(made);
    input_channel = made;
}

void cm_package::adopt_before_reboot_program(cm_command* clone) {
    own_before_reboot_program_.reset(clone);
    before_reboot_program = clone;
}

void cm_package::release_channels() {
    if (own_input_channel_)
        own_input_channel_->set_skip_tail(0);
    own_input_channel_.reset();
    input_channel = nullptr;
    net_channel = nullptr;
}

void cm_package::release() {
    release_channels();
    if (owns_partner)
        delete partner_package;
    partner_package = nullptr;
    delete catalog_entry;
    catalog_entry = nullptr;
    delete _previous_catalog_entry;
    _previous_catalog_entry = nullptr;
    delete log_object_list;
    log_object_list = nullptr;
    delete central_directory;
    central_directory = nullptr;
    own_messages_.reset();
    messages = nullptr;
    own_before_reboot_program_.reset();
    before_reboot_program = nullptr;
}

void cm_package::init() {
    cm_command::set_package(this);
    reverse_on_remove = says_yes("__REVERSE_ORDER_DURING_REMOVE__", false) ? 0 : 1;
    undo_only_executed_actions = says_yes("__UNDO_ONLY_EXECUTED_ACTIONS__", true);
    init_attributes();
    init_operation();
}

void cm_package::init_attributes() {
    undoable = committable = 2;
    creation_time = last_modification_time = additional_time = 0;
    history_reset = caller_word = package_type = internal_error = 0;
    versioning_type = 1;
    encode_messages = 0;
    move_removing_host = no_check_source_host = 1;
    lenient_distribution = 0;
    qep_before_program_timeout = qep_after_program_timeout = -1;
    default_operation = u"install";
    server_mode = operation_mode = 1;
    log_mode = log_user_id = -1;
    log_gid = -1;
    post_notice = skip_non_zero = 0;
    before_as_uid = after_as_uid = 0;
    no_chk_on_rm = 1;
    web_view_mode = 0;
    device_support = 0;
    sharing_control = 1;
    package_mask = 1;
    save_default_variables_flag = internal_package = 0;
    device_failures = 1;
    reserved_314 = reserved_356 = 0;
    reserved_372 = 0;
}

void cm_package::init_operation() {
    _curr_result = _last_result = 0;
    is_backup_package = 0;
    external_call = 1;
    commit_phase = 0;
    commit_may_reboot = commit_goes_on = 0;
    resume_stage = next_resume_stage = 0;
    mode = 0;
    current_offset = check_point_offset = block_size = restart_offset = 0;
    not_compressed_installation = 0;
    connected = 0;
    operation_result = u"success";
    operation_is_transactional = operation_is_preferably_not_transactional = 0;
    operation_is_undoable = operation_is_preferably_undoable = 0;
    operation_is_undo_ability_transactional = 0;
    operation_is_auto_commit = operation_is_auto_accept = 0;
    operation_is_preferably_not_in_reboot = operation_is_in_a_reboot = 0;
    operation_is_auto_reboot = operation_is_force = 0;
    cleanup_flag = 1;
    saving_profile = restart_internal = executing_as_undo = undo_preloaded = 0;
}

// Everything but the command's own part. What is shared stays with the source.
void cm_package::copy_values(const cm_package& other) {
    name = other.name;
    version = other.version;
    title = other.title;
    description = other.description;
    copyright = other.copyright;
    undoable = other.undoable;
    committable = other.committable;
    creation_time = other.creation_time;
    last_modification_time = other.last_modification_time;
    additional_time = other.additional_time;
    history_reset = other.history_reset;
    caller_word = other.caller_word;
    package_type = other.package_type;
    versioning_type = other.versioning_type;
    internal_error = other.internal_error;
    dependency = other.dependency;
    net_channel = other.net_channel;
    input_channel = other.input_channel;
    partner_package = other.partner_package;
    owns_partner = false;
    catalog = other.catalog;
    reference_table = other.reference_table;
    messages = other.messages;
    encode_messages = other.encode_messages;
    extra_text = other.extra_text;
    spb_path = other.spb_path;
    source_host_name = other.source_host_name;
    move_removing_host = other.move_removing_host;
    no_check_source_host = other.no_check_source_host;
    lenient_distribution = other.lenient_distribution;
    qep_before_program_path = other.qep_before_program_path;
    qep_before_program_arguments = other.qep_before_program_arguments;
    qep_before_program_timeout = other.qep_before_program_timeout;
    qep_after_program_path = other.qep_after_program_path;
    qep_after_program_arguments = other.qep_after_program_arguments;
    qep_after_program_timeout = other.qep_after_program_timeout;
    default_operation = other.default_operation;
    server_mode = other.server_mode;
    operation_mode = other.operation_mode;
    log_path = other.log_path;
    log_host_name = other.log_host_name;
    log_mode = other.log_mode;
    log_user_id = other.log_user_id;
    post_notice = other.post_notice;
    mail_id = other.mail_id;
    before_program_path = other.before_program_path;
    before_input_path = other.before_input_path;
    before_as_uid = other.before_as_uid;
    skip_non_zero = other.skip_non_zero;
    after_program_path = other.after_program_path;
    after_input_path = other.after_input_path;
    after_as_uid = other.after_as_uid;
    after_prog_env = other.after_prog_env;
    before_prog_env = other.before_prog_env;
    stage_area = other.stage_area;
    no_chk_on_rm = other.no_chk_on_rm;
    log_gid = other.log_gid;
    web_view_mode = other.web_view_mode;
    central_directory = copy_of(other.central_directory);
    device_id = other.device_id;
    device_support = other.device_support;
    sharing_control = other.sharing_control;
    original_name = other.original_name;
    original_version = other.original_version;
    before_reboot_program = other.before_reboot_program;
    undo_only_executed_actions = other.undo_only_executed_actions;
    variables = other.variables;
    log_object_list = copy_of(other.log_object_list);
    nested_packages = other.nested_packages;
    package_mask = other.package_mask;
    save_default_variables_flag = other.save_default_variables_flag;
    internal_package = other.internal_package;
    device_failures = other.device_failures;
    reserved_314 = other.reserved_314;
    reserved_356 = other.reserved_356;
    reserved_361 = other.reserved_361;
    reserved_362 = other.reserved_362;
    reserved_370 = other.reserved_370;
    reserved_372 = other.reserved_372;
    catalog_key = other.catalog_key;
    catalog_entry = copy_of(other.catalog_entry);
    _previous_catalog_entry = copy_of(other._previous_catalog_entry);
    _curr_result = other._curr_result;
    _last_result = other._last_result;
    is_backup_package = other.is_backup_package;
    external_call = other.external_call;
    commit_phase = other.commit_phase;
    commit_may_reboot = other.commit_may_reboot;
    commit_goes_on = other.commit_goes_on;
    resume_stage = other.resume_stage;
    next_resume_stage = other.next_resume_stage;
    mode = other.mode;
    current_offset = other.current_offset;
    check_point_offset = other.check_point_offset;
    block_size = other.block_size;
    not_compressed_installation = other.not_compressed_installation;
    restart_offset = other.restart_offset;
    connected = other.connected;
    source_path = other.source_path;
    operation_name = other.operation_name;
    operation_phase = other.operation_phase;
    operation_result = other.operation_result;
    operation_is_transactional = other.operation_is_transactional;
    operation_is_preferably_not_transactional = other.operation_is_preferably_not_transactional;
    operation_is_undoable = other.operation_is_undoable;
    operation_is_preferably_undoable = other.operation_is_preferably_undoable;
    operation_is_undo_ability_transactional = other.operation_is_undo_ability_transactional;
    operation_is_auto_commit = other.operation_is_auto_commit;
    operation_is_auto_accept = other.operation_is_auto_accept;
    operation_is_preferably_not_in_reboot = other.operation_is_preferably_not_in_reboot;
    operation_is_in_a_reboot = other.operation_is_in_a_reboot;
    operation_is_auto_reboot = other.operation_is_auto_reboot;
    operation_is_force = other.operation_is_force;
    cleanup_flag = other.cleanup_flag;
    saving_profile = other.saving_profile;
    restart_internal = other.restart_internal;
    executing_as_undo = other.executing_as_undo;
    undo_preloaded = other.undo_preloaded;
    set_package(this); // the children were added under the source's pointer
}

cm_command* cm_package::get_undo_command(int) {
    auto* undo = new (std::nothrow) cm_package;
    if (!undo) {
        KM_TRACE(trace_error, "common", "new failed to allocate memory for the undo package");
        result = fatal_failure;
        return nullptr;
    }
    undo->is_backup_package = 1;
    undo->log_object_list = copy_of(log_object_list);
    return undo;
}

void cm_package::set_name(ustring text) { name = text; }

unzipping_channel* cm_package::get_input_channel() { return input_channel; }
km::input_channel* cm_package::get_net_channel() { return net_channel; }

namespace {
struct flag_of_bit {
    std::uint32_t bit;
    std::int32_t cm_package::*flag;
};
constexpr flag_of_bit operation_flags[] = {
    {m_transactional, &cm_package::operation_is_transactional},
    {m_preferably_not_transactional, &cm_package::operation_is_preferably_not_transactional},
    {m_undoable, &cm_package::operation_is_undoable},
    {m_preferably_undoable, &cm_package::operation_is_preferably_undoable},
    {m_undo_ability_transactional, &cm_package::operation_is_undo_ability_transactional},
    {m_auto_commit, &cm_package::operation_is_auto_commit},
    {m_auto_accept, &cm_package::operation_is_auto_accept},
    {m_preferably_not_in_reboot, &cm_package::operation_is_preferably_not_in_reboot},
    {m_during_reboot, &cm_package::operation_is_in_a_reboot},
    {m_auto_reboot, &cm_package::operation_is_auto_reboot},
    {m_force, &cm_package::operation_is_force},
};
} // namespace

void cm_package::set_operation_option(int options) {
    for (const auto& one : operation_flags)
        if (static_cast<std::uint32_t>(options) & one.bit)
            this->*one.flag = 1;
}

void cm_package::set_error_message(spmessage* list) {
    if (messages && list && messages != list)
        list->insert(messages);
    if (own_messages_.get() != list)
        own_messages_.reset();
    messages = list;
}

int cm_package::insert_package_id(const km::pair& id) {
    auto* copy = new (std::nothrow) pair(id);
    if (copy)
        nested_packages.push_back(copy);
    return copy != nullptr;
}

void cm_package::set_package_id_list(vector& pairs, int clear_source) {
    nested_packages.clear();
    for (int i = 0; i < pairs.size(); ++i)
        if (const auto* one = pairs.at<pair>(i))
            insert_package_id(*one);
    if (clear_source)
        pairs.clear();
}

int cm_package::find_catalog_entry(int create) {
    const auto* stored = catalog ? catalog->get_as<cm_catalog_entry>(catalog_key) : nullptr;
    if (!stored) {
        if (create) {
            delete catalog_entry;
            catalog_entry = new cm_catalog_entry;
        }
        return 0;
    }
    KM_TRACE(trace_info, "common", "Package already exists in catalog");
    delete catalog_entry;
    catalog_entry = new (std::nothrow) cm_catalog_entry(*stored);
    if (!catalog_entry) {
        result = fatal_failure;
        KM_TRACE(trace_error, "common", "Error: failur in geting the entry in the catalog");
        return 0;
    }
    KM_TRACE(trace_info, "common",
             "cm_status=%d current_cm_status=%d last_action=%d operation=%d current_result=%d",
             catalog_entry->cm_status, catalog_entry->current_cm_status, catalog_entry->last_action,
             catalog_entry->operation_in_progress, catalog_entry->current_result);
    return 1;
}

cm_catalog_entry* cm_package::get_entry_in_catalog() const {
    if (!catalog) {
        KM_TRACE(trace_error, "common", "catalog entry not available");
        return nullptr;
    }
    const auto* stored = catalog->get_as<cm_catalog_entry>(cm_catalog_key(name, version));
    if (!stored) {
        KM_TRACE(trace_warning, "common", "catalog entry not found");
        return nullptr;
    }
    return new cm_catalog_entry(*stored);
}

int cm_package::check_package_existence(const pathname& path) { return file(path).exists(); }

void cm_package::note_progress(const cm_command& command) {
    const auto hook = get_engine_hooks().progress;
    if (!hook)
        return;
    if (!progress_total_)
        progress_total_ = count_commands();
    hook(++progress_done_, progress_total_, &command);
}

} // namespace km
