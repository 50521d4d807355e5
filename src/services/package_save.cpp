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

// Adds a temporary file as the tree's entry and removes it.
bool add_tree(zipping_channel& out, const pathname& temporary) {
    out.add(temporary, 1, tree_entry, 1);
    const bool removed = file(temporary).remove(0);
    if (!out.get_error())
        return true;
    KM_TRACE(trace_error, "common", "Error: adding in the package the profile");
    if (!removed)
        KM_TRACE(trace_error, "common", "package profile temporary file failed to be removed");
    return false;
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
            file(temporary).remove(0);
            return result;
        }
    }
    if (!download_list(temporary, 0)) {
        KM_TRACE(trace_error, "common", "Error downloading the list");
        file(temporary).remove(0);
        return fatal_failure;
    }
    return add_tree(*out, temporary) ? success : failure;
}

// What passed the limit of the container is known only when its directory is written.
cm_result cm_package::end_of_save(zipping_channel* out) {
    if (result != success) {
        KM_TRACE(trace_error, "common", "Error: save_command failed with result %d",
                 static_cast<int>(result));
        return result;
    }
    if (!out)
        return success;
    out->close();
    if (out->get_error() == channel_too_large) {
        KM_TRACE(trace_error, "common", "2GByte overflow");
        if (messages)
            messages->add(356L);
        return failure;
    }
    return out->get_error() ? failure : success;
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
// Adds the tree's entry out of what was deflated while the tree was coded.
bool add_tree(zipping_channel& out, deflating_channel& coded) {
    const deflated_data data = coded.finish();
    auto* entry = new zip_entry(tree_entry);
    entry->size = data.size;
    if (out.put_deflated_entry(entry, data))
        return true;
    KM_TRACE(trace_error, "common", "Error: adding in the package the profile");
    return false;
}
} // namespace

// The temporary file stands for the right to write there; the tree does not take the way through
// it.
cm_result cm_package::save_sp(zipping_channel* out) {
    KM_TRACE_FUNCTION("cm_package::save_sp");
    pathname temporary;
    if (!get_new_profile_name(temporary)) {
        KM_TRACE(trace_error, "common", "Error: getting profile_name");
        return failure;
    }
    file_output_channel plain(temporary, 0);
    if (plain.get_error()) {
        const int error = plain.get_handle().get_system_error();
        KM_TRACE(trace_error, "common", "Unable to create the file '%s'. rc = %d",
                 temporary.mbcs_str(), error);
        if (messages)
            messages->add(25L, temporary.mbcs_str(), std::to_string(error).c_str());
        file(temporary).remove(0);
        return failure;
    }
    plain.set_sync_data(0); // gone at once
    plain.close();
    deflating_channel coded(out->get_level());
    sp_object writer(messages);
    const auto written = writer.encode(this, variables, coded, sp_object::sp);
    file(temporary).remove(0);
    if (written != success) {
        KM_TRACE(trace_error, "common", "Error encoding the list on file %s", temporary.mbcs_str());
        return failure;
    }
    if (!add_tree(*out, coded))
        return failure;
    out->close();
    if (out->get_error() == channel_too_large) {
        KM_TRACE(trace_error, "common", "2GByte overflow");
        if (messages)
            messages->add(356L);
        return failure;
    }
    return out->get_error() ? failure : success;
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
