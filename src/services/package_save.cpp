// package_save: package files, whole and as a difference
// format: docs/formats/package-file.md
// invariants: the tree is the first entry; every temporary file is removed
#include "base/msg_supp.h"
#include "deflating_channel.h"
#include "file.h"
#include "package.h"
#include "sp_object.h"
#include "trclog.h"
#include "zip_entry.h"

#include <cstring>
#include <string>

namespace km {

namespace {
constexpr const char* tree_entry = "SoftwarePackage";

// What is left behind is no failure of the package.
void remove_temporary(const pathname& temporary) {
    if (!file(temporary).remove(0))
        KM_TRACE(trace_error, "common", "package profile temporary file failed to be removed");
}

cm_result result_of_adding_tree(zipping_channel& out) {
    if (!out.get_error())
        return cm_command::success;
    KM_TRACE(trace_error, "common", "Error: adding in the package the profile");
    return cm_command::failure;
}

// What passed the limit of the container is known only when its directory is written.
cm_result close_package(zipping_channel& out, spmessage* messages) {
    out.close();
    if (out.get_error() == channel_too_large) {
        KM_TRACE(trace_error, "common", "2GByte overflow");
        if (messages)
            messages->add(356L);
    }
    return out.get_error() ? cm_command::failure : cm_command::success;
}
} // namespace

cm_result cm_package::save_profile(zipping_channel* out, int load_data) {
    pathname temporary;
    if (!get_new_profile_name(temporary)) {
        KM_TRACE(trace_error, "common", "Error: getting profile_name");
        return failure;
    }
    if (load_data) {
        load_command(1);
        if (result != success) {
            KM_TRACE(trace_error, "common", "Error: loading_command failed with result %d",
                     static_cast<int>(result));
            remove_temporary(temporary);
            return result;
        }
    }
    if (!download_list(temporary, 0)) {
        KM_TRACE(trace_error, "common", "Error downloading the list");
        remove_temporary(temporary);
        return fatal_failure;
    }
    out->add(temporary, 1, tree_entry, 1);
    const auto added = result_of_adding_tree(*out);
    remove_temporary(temporary);
    return added;
}

cm_result cm_package::end_of_save(zipping_channel* out) {
    if (result != success) {
        KM_TRACE(trace_error, "common", "Error: save_command failed with result %d",
                 static_cast<int>(result));
        return result;
    }
    return out ? close_package(*out, messages) : success;
}

cm_result cm_package::save(zipping_channel* out) {
    KM_TRACE_FUNCTION("cm_package::save");
    saving_profile = 1;
    const auto saved = save_profile(out, 1);
    saving_profile = 0;
    if (saved != success)
        return saved;
    KM_TRACE(trace_info, "common", "save the rest of commands in package");
    save_command(out);
    return end_of_save(out);
}

cm_result cm_package::save(unzipping_channel* in, zipping_channel* out) {
    KM_TRACE_FUNCTION("cm_package::save");
    if (out) {
        saving_profile = 1;
        const auto saved = save_profile(out, 0);
        saving_profile = 0;
        if (saved != success)
            return saved;
    }
    KM_TRACE(trace_info, "common", "save the rest of commands in package");
    save_command(in, out);
    return end_of_save(out);
}

cm_result cm_package::delta_save(pathname* base, unzipping_channel* in, zipping_channel* out) {
    KM_TRACE_FUNCTION("cm_package::delta_save");
    const auto saved = save_profile(out, in == nullptr);
    if (saved != success)
        return saved;
    KM_TRACE(trace_info, "common", "save the rest of commands in package");
    delta_save_command(base, in, out);
    return end_of_save(out);
}

namespace {
// Whether the new file can be written; else why not is told.
bool is_writable(const pathname& temporary, spmessage* messages) {
    file_output_channel out(temporary, 0);
    out.set_sync_data(0); // it is removed again
    if (!out.get_error())
        return true;
    const int error = out.get_handle().get_system_error();
    KM_TRACE(trace_error, "common", "Unable to create the file '%s'. rc = %d", temporary.mbcs_str(),
             error);
    if (messages)
        messages->add(25L, temporary.mbcs_str(), std::to_string(error).c_str());
    return false;
}

void put_tree(zipping_channel& out, const deflated_data& tree) {
    auto* entry = new zip_entry(tree_entry);
    entry->size = tree.size;
    out.put_deflated_entry(entry, tree);
}
} // namespace

// The tree is deflated while it is coded. The temporary file only shows that a profile can be
// written; the tree takes no way through it.
cm_result cm_package::save_sp(zipping_channel* out) {
    KM_TRACE_FUNCTION("cm_package::save_sp");
    pathname temporary;
    if (!get_new_profile_name(temporary)) {
        KM_TRACE(trace_error, "common", "Error: getting profile_name");
        return failure;
    }
    const bool may_write = is_writable(temporary, messages);
    remove_temporary(temporary);
    if (!may_write)
        return failure;
    deflating_channel coded(out->get_level());
    sp_object writer(messages);
    if (writer.encode(this, variables, coded, sp_object::sp) != success) {
        KM_TRACE(trace_error, "common", "Error encoding the list on file %s", temporary.mbcs_str());
        return failure;
    }
    put_tree(*out, coded.finish());
    const auto added = result_of_adding_tree(*out);
    return added == success ? close_package(*out, messages) : added;
}

long cm_package::get_crc_from_CEN(const pathname& path) const {
    if (!central_directory)
        return 0;
    const ustring name = file::convert_to_zip_format(path.mbcs_str());
    KM_TRACE(trace_info, "common", "file is %s", name.mbcs_str());
    for (int i = 0; i < central_directory->size(); ++i) {
        const auto* entry = central_directory->at<zip_entry>(i);
        if (!entry || !entry->get_name() || std::strcmp(entry->get_name(), name.mbcs_str()) != 0)
            continue;
        KM_TRACE(trace_info, "common", "entry found!!");
        return entry->crc;
    }
    return 0;
}

} // namespace km
