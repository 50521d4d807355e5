// package_profile: profiles, checkpoints and their names
// format: docs/formats/package-file.md
// invariant: a profile that an entry may name is replaced whole or not at all
#include "base/msg_supp.h"
#include "base_configuration.h"
#include "detail_package_store.h"
#include "durable.h"
#include "engine_hooks.h"
#include "file.h"
#include "package.h"
#include "sp_object.h"
#include "text_file.h"
#include "trclog.h"
#include "variable_list.h"

#include <algorithm>
#include <memory>

namespace km {

int cm_package::get_new_profile_name(pathname& path) {
    KM_TRACE_FUNCTION("cm_package::get_new_profile_name");
    const pathname working_dir(base_configuration().get_var(u"working_dir"));
    KM_TRACE(trace_info, "common", "preparing the skipNames vector");
    vector taken;
    if (catalog) {
        Keyslist entries(*catalog);
        while (HashtableEntry* one = entries.next_entry())
            if (const auto* entry = dynamic_cast<const cm_catalog_entry*>(one->get_value()))
                taken.push_back(new pathname(entry->profile_name));
    }
    const std::unique_ptr<file> name(file::get_temp_name(working_dir, u"PP", 1, &taken));
    if (!name) {
        KM_TRACE(trace_error, "common", "Error: obtaining profile_temp_file");
        return 0;
    }
    path = name->get_path();
    return 1;
}

// Written beside its place, flushed and renamed: a kill leaves the old file, or none.
int cm_package::download_list(const pathname& path, int as_zip) {
    KM_TRACE_FUNCTION("cm_package::download_list");
    if (!path.is_valid()) {
        KM_TRACE(trace_error, "common", "Error opening profile %s", path.mbcs_str());
        return 0;
    }
    if (const auto hook = get_engine_hooks().expect_durable; hook && as_zip)
        hook();
    make_directories_durably(path.get_parent());
    const pathname temporary(path.get_text() + ustring(u".new"));
    file_output_channel out(temporary, 0);
    if (out.get_error()) {
        KM_TRACE(trace_error, "common", "Error opening profile %s", path.mbcs_str());
        return 0;
    }
    out.set_sync_data(0); // rename_durably flushes the whole, once
    mode = static_cast<std::int32_t>(static_cast<std::uint32_t>(mode) & ~m_binary_file);
    bool written;
    if (as_zip) {
        zipping_channel zip(&out);
        zip.set_level(1); // it is written at every step, while somebody waits
        written = save_sp(&zip) == success;
        out.close();
    } else {
        sp_object writer(messages);
        written = writer.encode(this, variables, out, sp_object::spb) == success;
    }
    if (!written || out.get_error() || !rename_durably(temporary, path)) {
        KM_TRACE(trace_error, "common", "Error encoding the list on file %s", path.mbcs_str());
        file(temporary).remove(0);
        return 0;
    }
    return 1;
}

cm_result cm_package::download_newsp() {
    KM_TRACE_FUNCTION("cm_package::download_newsp");
    const pathname old_profile = catalog_entry->profile_name;
    if (old_profile.is_valid() && !check_package_existence(old_profile)) {
        KM_TRACE(trace_warning, "common",
                 "the profile '%s' doesn't exist, probably we the SP has been removed during this "
                 "operation... do nothing",
                 old_profile.mbcs_str());
        return warning;
    }
    pathname path;
    if (!get_new_profile_name(path))
        return fatal_failure;
    if (!download_list(path, 1)) {
        file(path).remove(0);
        return fatal_failure;
    }
    catalog_entry->profile_name = path;
    if (!store_entry_now(*this)) {
        KM_TRACE(trace_error, "common", "Error updating the catalog entry");
        internal_error = ie_catalog_update;
        return fatal_failure;
    }
    remove_profile(old_profile);
    return success;
}

// Asked before each command of a connected run: have enough bytes passed since the last one?
bool cm_package::is_checkpoint_to_be_executed() {
    constexpr long least = 1000000, most = 2000000000, parts = 10;
    if (!connected)
        return false;
    base_configuration settings;
    if (settings.is_checkpoint_disabled()) {
        KM_TRACE(trace_info, "common", "checkpoint disabled");
        return false;
    }
    long distance = settings.get_checkpoint_buffer_size();
    if (!distance) {
        if (!block_size) {
            KM_TRACE(trace_info, "common", "block size is zero");
            return false;
        }
        distance = std::clamp(block_size / parts, least, most);
    }
    auto* channel = get_input_channel();
    if (!channel)
        return false;
    const long read = channel->get_bytes_read();
    if (read <= check_point_offset || read - check_point_offset < distance)
        return false;
    KM_TRACE(trace_info, "common", "more bytes than %ld have been already read..", distance);
    return true;
}

void cm_package::save_default_variables() {
    KM_TRACE_FUNCTION("cm_package::save_default_variables");
    const variable_list* defaults = variables ? variables->get_defaults() : nullptr;
    if (!defaults)
        return;
    text_file user_file(pathname(base_configuration().get_var(u"user_file_variables")));
    if (!user_file.read()) {
        KM_TRACE(trace_error, "common", "Error opening the file %s",
                 user_file.get_path().mbcs_str());
        return;
    }
    Keyslist entries(*defaults);
    while (HashtableEntry* one = entries.next_entry()) {
        const auto* key = dynamic_cast<const ustring*>(one->get_key());
        const auto* value = dynamic_cast<const ustring*>(one->get_value());
        if (!key || !value)
            continue;
        if (user_file.line_exists(*key + ustring(u" *")) ||
            user_file.line_exists(*key + ustring(u"=*"))) {
            KM_TRACE(trace_warning, "common", "key =%s already present in znpis.var",
                     key->mbcs_str());
            if (messages)
                messages->add(568L, key->mbcs_str());
            continue;
        }
        user_file.add_line(*key + ustring(u" = ") + *value);
        user_file.commit_changes();
    }
}

int cm_package::load_list(const pathname& path, cm_package*& package_out) {
    KM_TRACE_FUNCTION("cm_package::load_list");
    package_out = nullptr;
    auto source = std::make_unique<file_input_channel>(path);
    if (source->get_error()) {
        KM_TRACE(trace_error, "common", "Error opening profile %s", path.mbcs_str());
        return 0;
    }
    auto zip = std::make_unique<unzipping_channel>(source.release());
    zip->set_skip_tail(0);
    if (zip->get_error()) {
        KM_TRACE(trace_error, "common", "Error opening unzipping channel");
        return 0;
    }
    if (!zip->get_next_entry()) {
        KM_TRACE(trace_error, "common", "Error: get_next_entry(). Software Package Block is '%s'",
                 path.mbcs_str());
        return 0;
    }
    sp_object reader(messages);
    cm_package* read = nullptr;
    if (reader.decode(read, zip.get(), 1, sp_object::either) != success) {
        KM_TRACE(trace_error, "common", "Error decoding Software Package '%s'", path.mbcs_str());
        return 0;
    }
    if (zip->current_entry())
        zip->close_entry(); // an offset inside the tree would be none to go on from
    read->reference_table = reference_table;
    read->catalog = catalog;
    read->adopt_input_channel(zip.release());
    package_out = read;
    return 1;
}

} // namespace km
