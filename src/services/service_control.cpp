// service_control: private directories of packages
// format: docs/formats/service-control.md
// invariant: names are taken literally: a version that only begins alike keeps its directories
#include "service_control.h"

#include "base_configuration.h"
#include "package.h"
#include "text_file.h"
#include "trclog.h"

namespace km {

namespace {
pathname control_file() {
    pathname path(base_configuration().get_var(u"working_dir"));
    path += ustring(u"service.ctl");
    return path;
}

long line_of(const text_file& lines, const ustring& name, const ustring& version) {
    const ustring key = name + ustring(u" ") + version + ustring(u" ");
    for (long i = 0; i < lines.line_count(); ++i)
        if (lines[i].get_text().substr(0, key.length()) == key)
            return i;
    return -1;
}

enum class outcome { done, no_line, not_removed, line_kept, not_saved };

// Removes the directory of one line, then the line.
outcome clear_one(text_file& lines, const ustring& name, const ustring& version, bool from_end,
                  ustring& directory) {
    const long at = line_of(lines, name, version);
    if (at < 0)
        return outcome::no_line;
    const ustring text = lines[at].get_text();
    KM_TRACE(trace_info, "common", "Looking for :: in %s", text.mbcs_str());
    const auto mark = from_end ? text.rfind(ustring(u":: ")) : text.find(ustring(u"::"));
    directory = mark == ustring::npos ? ustring() : text.substr(mark + (from_end ? 3 : 2));
    directory.strip();
    KM_TRACE(trace_info, "common", "service directory ->%s", directory.mbcs_str());
    // A line without an absolute directory names nothing that may be removed.
    if (directory[0] == u'/' && directory != ustring(u"/") && !file(pathname(directory)).remove(1))
        return outcome::not_removed;
    if (!lines.remove_line_at_index(at))
        return outcome::line_kept;
    return lines.commit_changes() ? outcome::done : outcome::not_saved;
}
} // namespace

int cm_package::clear_service_directory() {
    KM_TRACE_FUNCTION("cm_package::clear_service_directory");
    text_file lines(control_file());
    const ustring path = lines.get_path().get_text();
    KM_TRACE(trace_info, "common", "service control file=%s", path.mbcs_str());
    if (!lines.read(1)) {
        KM_TRACE(trace_error, "common", "failure reading %s", path.mbcs_str());
        return 0;
    }
    for (;;) {
        ustring directory;
        switch (clear_one(lines, name, version, false, directory)) {
        case outcome::done:
            break;
        case outcome::no_line:
            KM_TRACE(trace_info, "common", "package and version name not found in %s",
                     path.mbcs_str());
            return 1;
        case outcome::not_removed:
            KM_TRACE(trace_error, "common", "failure removing the service directory %s",
                     directory.mbcs_str());
            return 0;
        case outcome::line_kept:
        case outcome::not_saved:
            KM_TRACE(trace_error, "common", "failure removing %s from %s", directory.mbcs_str(),
                     path.mbcs_str());
            return 0;
        }
    }
}

cm_result cleanup_backup(const ustring& name, const ustring& version) {
    KM_TRACE_FUNCTION("cleanup_backup");
    text_file lines(control_file());
    const ustring path = lines.get_path().get_text();
    if (!lines.read(1)) {
        KM_TRACE(trace_error, "common", "failure reading %s", path.mbcs_str());
        return cm_command::temporary_failure;
    }
    for (;;) {
        ustring directory;
        switch (clear_one(lines, name, version, true, directory)) {
        case outcome::done:
            break;
        case outcome::no_line:
            KM_TRACE(trace_info, "common", "end searching of %s,%s in %s", name.mbcs_str(),
                     version.mbcs_str(), path.mbcs_str());
            return cm_command::success;
        case outcome::not_saved:
            KM_TRACE(trace_error, "common", "failure committing_changes on %s", path.mbcs_str());
            return cm_command::temporary_failure;
        default:
            return cm_command::temporary_failure;
        }
    }
}

} // namespace km
