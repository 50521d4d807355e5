// continue_run: an install that stopped half way goes on
// no format
// invariant: what the profile says was done is not done again
#include "continue_run.h"

#include "file_channel.h"
#include "package_stream.h"
#include "reboot.h"

#include <filesystem>

namespace kmhost {

std::string absolute_path(const std::string& path) {
    if (is_address(path))
        return path;
    std::error_code error;
    const auto full = std::filesystem::absolute(path, error);
    return error ? path : full.lexically_normal().string();
}

bool goes_on_from_profile(const package_id& id, const km::cm_catalog_entry* entry, unsigned mode) {
    if (entry && (mode & km::m_during_reboot) && waits_for_reboot(*entry))
        return true;
    return entry && !(mode & km::m_force) && entry->last_action == km::a_execute &&
           entry->cm_status == entry->current_cm_status &&
           (entry->current_result == km::cm_command::success_retry ||
            is_cut_at_checkpoint(id, *entry));
}

bool continue_run(session& at, opened_package& opened, const std::string& file,
                  km::cm_result& answer) {
    if (is_address(file))
        return continue_stream(at, opened, answer);
    const km::cm_catalog_entry entry = *at.entry();
    const auto package = open_profile(entry.profile_name.mbcs_str(), at.messages, at.result());
    if (!package)
        return false;
    km::unzipping_channel reader(
        new km::file_input_channel(km::pathname(file.c_str()), package->current_offset));
    reader.set_skip_tail(0);
    reader.set_bytes_read(package->current_offset);
    at.take(*package);
    package->input_channel = &reader;
    package->source_path = km::pathname(file.c_str());
    const int reboot = waits_for_reboot(entry) ? int{km::m_during_reboot} : 0;
    answer = package->execute(km::a_execute, entry.entry_mode | reboot, entry.call_argument);
    package->input_channel = nullptr;
    return true;
}

} // namespace kmhost
