// package_backup: making and loading of backup packages
// format: docs/formats/package-file.md
// invariants: the backup stands, whole and named by the entry, before the first object is changed;
// a backup that is not whole leaves no file
#include "base/msg_supp.h"
#include "base_configuration.h"
#include "build_package.h"
#include "detail_package_store.h"
#include "durable.h"
#include "file.h"
#include "kill_point.h"
#include "package.h"
#include "service_control.h"
#include "trclog.h"

#include <cstring>
#include <memory>
#include <string>

namespace km {

namespace {
constexpr const char16_t* backup_version = u"1.0.0";
constexpr int save_block = 1 << 16;

bool asks_for_backup(int operation) {
    return operation == o_execute_undoable || operation == o_prepare_undoable ||
           operation == o_commit;
}
// The channel keeps the reason to itself.
void tell_unwritten(spmessage* messages, const pathname& path, int error) {
    const std::string text =
        std::string("E ") + path.mbcs_str() + " cannot be written: " + std::strerror(error) + ".\n";
    if (messages)
        messages->add(text.c_str());
}
} // namespace

void cm_package::make_backup(int action, int phase) {
    KM_TRACE_FUNCTION("cm_package::make_backup");
    auto& entry = *catalog_entry;
    if (phase == p_commit_cleanup) {
        KM_TRACE(trace_info, "common", "cleanup backup");
        if (cleanup_backup(entry.undo_package_name.get_text(), backup_version) != success) {
            KM_TRACE(trace_error, "common", "error: cannot build the backup package");
            internal_error = ie_cleanup_backup;
        }
        return;
    }
    if (result != success || !asks_for_backup(entry.operation_in_progress))
        return;
    if (entry.backup_availability) {
        drop_stale_undo();
        return;
    }
    KM_TRACE(trace_info, "common", "build of the undo package");
    drop_stale_undo();
    const pathname older = entry.undo_package_name;
    operation_phase = u"backup";
    build_undo_package(action, phase);
    if (result != success) {
        if (messages)
            messages->add(324L);
        KM_TRACE(trace_error, "common", "error: the build of the undo package failed");
        internal_error = ie_backup_not_built;
        return;
    }
    if (phase != p_commit_before_reboot)
        entry.backup_availability = 1;
    KM_KILL_POINT("backup.before_store");
    if (!store_entry(*this, entry)) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry");
        internal_error = ie_catalog_update;
        result = fatal_failure;
    } else if (older.is_valid() && !(older == entry.undo_package_name)) {
        file(older).remove(0);
    }
}

void cm_package::drop_stale_undo() {
    forget_run_of_backup(*this, catalog_entry->undo_package_name);
}

void cm_package::build_undo_package(int action, int phase) {
    KM_TRACE_FUNCTION("cm_package::build_undo_package");
    if (phase == p_commit_after_reboot)
        gather_undo_data();
    else
        make_undo_package(action, phase);
}

// Before the reboot only the tree of the backup was saved; now it gets its data.
void cm_package::gather_undo_data() {
    const pathname undo_path = catalog_entry->undo_package_name;
    pathname block = undo_path;
    block.set_extension(u"spb");
    if (!check_package_existence(undo_path)) {
        KM_TRACE(trace_error, "common", "error: cannot find the backup sp profile");
        internal_error = ie_backup_not_built;
        result = failure;
        return;
    }
    result = build_from_sp_file(undo_path, block);
    if (result != success) {
        KM_TRACE(trace_error, "common", "error: cannot build the backup package");
        internal_error = ie_backup_not_built;
        return;
    }
    if (!rename_durably(block, undo_path)) {
        result = failure;
        return;
    }
    catalog_entry->current_cm_status = cs_prepared_undoable;
}

void cm_package::make_undo_package(int action, int phase) {
    std::unique_ptr<cm_command> built(do_backup(this, nullptr, action));
    KM_TRACE(trace_info, "common", "do_backup returned = %d", static_cast<int>(result));
    auto* undo = dynamic_cast<cm_package*>(built.get());
    if (result != success)
        return;
    if (!undo) {
        result = fatal_failure;
        return;
    }
    undo->set_package(undo);
    if (variables)
        undo->variables = variables;
    const pathname backup_dir(base_configuration().get_var(u"backup_dir"));
    if (!backup_dir.is_valid()) { // it would be the current directory of whoever calls
        KM_TRACE(trace_error, "common", "Error: obtaining backup_temp_file");
        if (messages)
            messages->add("E The setting backup_dir is empty; it must name the directory of "
                          "backups.\n");
        result = failure;
        return;
    }
    make_directories_durably(backup_dir);
    const std::unique_ptr<file> name(file::get_temp_name(backup_dir, u"UP", 1, nullptr));
    if (!name) {
        KM_TRACE(trace_error, "common", "Error: obtaining backup_temp_file");
        result = failure;
        return;
    }
    const pathname path = name->get_path();
    KM_TRACE(trace_info, "common", "backup file name  = %s", path.mbcs_str());
    describe_undo(*undo, path);
    if (save_undo(*undo, path, phase) && note_undo(path, phase))
        return;
    if (!file(path).remove(0))
        KM_TRACE(trace_error, "common", "undo package temporary file failed to be removed");
}

void cm_package::describe_undo(cm_package& undo, const pathname& path) const {
    undo.set_name(path.get_text());
    undo.version = backup_version;
    undo.title = title;
    undo.description = name + ustring(u"^") + version;
    undo.web_view_mode = web_view_mode;
    undo.copyright = copyright;
    undo.creation_time = creation_time;
    undo.last_modification_time = last_modification_time;
    undo.additional_time = additional_time;
    undo.package_type = package_type;
    undo.versioning_type = versioning_type;
    undo.dependency = dependency;
    undo.sharing_control = sharing_control;
    undo.connected = 0;
    undo.source_path = path;
    undo.catalog = catalog;
    undo.messages = messages;
    append_extra_text(undo);
}

// Written to the file and flushed. The data are stored, not compressed: a backup is made while
// somebody waits, and mostly thrown away.
bool cm_package::save_undo(cm_package& undo, const pathname& path, int phase) {
    make_directories_durably(path.get_parent());
    file_output_channel out(path, 0);
    const int synchronises = out.get_sync_data();
    out.set_sync_data(0); // not for each block
    buffered_output_channel blocks(&out, save_block);
    zipping_channel zip(&blocks);
    if (out.get_error()) {
        KM_TRACE(trace_error, "common", "Error: initializing backup package");
        tell_unwritten(messages, path, out.get_handle().get_system_error());
        result = failure;
        return false;
    }
    zip.set_method(zip_entry::stored);
    zip.set_level(1); // the tree of commands is deflated nevertheless
    KM_KILL_POINT("backup.before_data");
    if (phase == p_commit_before_reboot) {
        undo.do_execute(a_execute, p_backup_finish);
        result = undo.save_sp(&zip);
    } else {
        result = undo.save(&zip);
    }
    KM_TRACE(trace_info, "common", "undo package save returned = %d", static_cast<int>(result));
    if (result == success) {
        blocks.flush();
        out.set_sync_data(synchronises);
        out.flush();
        out.close();
        if (out.get_error() || !sync_directory(path.get_parent()))
            result = failure;
    }
    if (out.get_error())
        tell_unwritten(messages, path, out.get_handle().get_system_error());
    if (result != success)
        return false;
    KM_KILL_POINT("backup.after_data");
    return result == success;
}

// The entry names the backup and, in a first run, a profile from which a cut run goes on.
bool cm_package::note_undo(const pathname& path, int phase) {
    auto& entry = *catalog_entry;
    if (phase != p_commit_before_reboot && !entry.profile_name.is_valid()) {
        if (auto* channel = get_input_channel(); channel && channel->get_bytes_read()) {
            KM_TRACE(trace_info, "common", "current_offset= %ld", current_offset);
            current_offset = channel->get_bytes_read();
            KM_TRACE(trace_info, "common", "new_offset= %ld", current_offset);
        }
        pathname profile;
        if (!get_new_profile_name(profile)) {
            KM_TRACE(trace_error, "common", "Error getting  new profile name");
            result = fatal_failure;
            return false;
        }
        if (!download_list(profile, 1)) {
            KM_TRACE(trace_error, "common", "Error saving the package");
            result = fatal_failure;
            file(profile).remove(0);
            return false;
        }
        entry.profile_name = profile;
        entry.current_result = success_retry;
    }
    entry.undo_package_name = path;
    return true;
}

} // namespace km
