// bulk_list: which data file belongs to which bulk report
// format: docs/formats/bulk-list.md
// invariant: a line is a key, a blank and a path
#include "bulk_list.h"

#include "base_configuration.h"
#include "text_file.h"
#include "trclog.h"

#include <algorithm>

namespace km {

namespace {

pathname list_path() {
    const pathname path =
        pathname(base_configuration().get_var(u"working_dir")) + ustring(u"bulk.lst");
    KM_TRACE(trace_info, "common", "bulk list is %s", path.mbcs_str());
    return path;
}

long find_entry(text_file& list, const ustring& key) {
    ustring pattern(u"*");
    pattern += key;
    pattern += u"*";
    KM_TRACE(trace_info, "common", "search for %s", pattern.mbcs_str());
    list.read();
    return list.find_line_matching_pattern(pattern);
}

} // namespace

pathname get_bulk_file_name(const ustring& key) {
    KM_TRACE_FUNCTION("get_bulk_file_name");
    text_file list(list_path());
    const long at = find_entry(list, key);
    if (at < 0)
        return pathname();
    const ustring& line = list[at].get_text();
    // A key with pattern characters may be longer than the line it finds.
    const pathname path(line.substr(std::min(key.length(), line.length())));
    KM_TRACE(trace_info, "common", "res file for %s is %s", key.mbcs_str(), path.mbcs_str());
    return path;
}

int set_bulk_file_name(const ustring& key, const ustring& path) {
    KM_TRACE_FUNCTION("set_bulk_file_name");
    text_file list(list_path());
    return list.add_line(key + ustring(u" ") + path) && list.commit_changes();
}

int remove_bulk_file_name(const ustring& key) {
    KM_TRACE_FUNCTION("remove_bulk_file_name");
    text_file list(list_path());
    const long at = find_entry(list, key);
    if (at < 0) {
        KM_TRACE(trace_warning, "common", "bulk file not not present yet in bulk list");
        return 0;
    }
    return list.remove_line_at_index(at) && list.commit_changes();
}

} // namespace km
