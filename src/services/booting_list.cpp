// booting_list: packages that wait for a reboot
// format: docs/formats/booting-list.md
// invariant: a package has one line; names are taken literally, never as patterns
#include "booting_list.h"

#include "base_configuration.h"
#include "text_file.h"
#include "trclog.h"
#include "user_variables.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

namespace km {

namespace {
constexpr const char16_t* BOOTING_LIST_SEPARATOR = u" # ";
std::unique_ptr<text_file> booting_list;

text_file& the_list() {
    booting_list = std::make_unique<text_file>(get_booting_file());
    booting_list->read();
    return *booting_list;
}

bool starts_with(const ustring& text, const ustring& key) {
    return text.length() >= key.length() && text.substr(0, key.length()) == key;
}

// The line of name^version, or -1. Another version that only begins alike is another package.
long line_of(const text_file& lines, const ustring& name, const ustring& version) {
    const ustring key = name + ustring(u"^") + version;
    for (long i = 0; i < lines.line_count(); ++i) {
        const ustring& text = lines[i].get_text();
        if (text == key || starts_with(text, key + ustring(u" ")))
            return i;
    }
    return -1;
}

// The line that starts with `head`, or -1.
long whole_line_of(const text_file& lines, const ustring& head) {
    for (long i = 0; i < lines.line_count(); ++i)
        if (starts_with(lines[i].get_text(), head))
            return i;
    return -1;
}
} // namespace

pathname get_booting_file() {
    pathname path(base_configuration().get_var(u"working_dir"));
    path += ustring(u"booting.lst");
    return path;
}

int is_in_booting_list(const ustring& name, const ustring& version, long* timeout, int* force) {
    KM_TRACE_FUNCTION("is_in_booting_list");
    if (force)
        *force = 0;
    KM_TRACE(trace_info, "common", "looking for : '%s^%s'", name.mbcs_str(), version.mbcs_str());
    const text_file& lines = the_list();
    const long at = line_of(lines, name, version);
    if (at < 0)
        return 0;
    KM_TRACE(trace_info, "common", "line found %ld", at);
    if (!timeout)
        return 1;
    KM_TRACE(trace_info, "common", "timeout requested");
    *timeout = -1;
    const ustring& text = lines[at].get_text();
    const auto separator = text.find(ustring(BOOTING_LIST_SEPARATOR));
    if (separator == ustring::npos) {
        KM_TRACE(trace_error, "common", "BOOTING_LIST_SEPARATOR ('%s') not found!",
                 ustring(BOOTING_LIST_SEPARATOR).mbcs_str());
        return 1;
    }
    long since = 0, allowed = 0;
    int forced = 0;
    if (std::sscanf(text.substr(separator + 3).mbcs_str(), "%ld %ld %d", &since, &allowed,
                    &forced) < 3) {
        KM_TRACE(trace_error, "common", "less than 3 argument read from booting.lst");
        return 1;
    }
    if (force)
        *force = forced;
    if (allowed < 0) {
        KM_TRACE(trace_info, "common", "infinite timeout");
    } else if (std::time(nullptr) - allowed < since) {
        KM_TRACE(trace_info, "common", "timeout not reached");
        *timeout = -2;
    } else {
        KM_TRACE(trace_info, "common", "timeout (%d) reached !", static_cast<int>(allowed));
        *timeout = allowed;
    }
    return 1;
}

void handle_booting_list(const ustring& name, const ustring& version, int add, long timeout,
                         int force) {
    KM_TRACE_FUNCTION("handle_booting_list");
    KM_TRACE(trace_info, "common", "package '%s^%s'", name.mbcs_str(), version.mbcs_str());
    const int listed = is_in_booting_list(name, version, nullptr, nullptr);
    if (listed && add)
        return;
    if (!booting_list)
        return;
    const ustring head = name + ustring(u"^") + version + ustring(BOOTING_LIST_SEPARATOR);
    if (!add) {
        KM_TRACE(trace_info, "common", "try to remove '%s'", head.mbcs_str());
        booting_list->remove_line_at_index(whole_line_of(*booting_list, head));
    } else {
        KM_TRACE(trace_info, "common", "timeout = %ld seconds", timeout);
        const std::string numbers = std::to_string(std::time(nullptr)) + " " +
                                    std::to_string(timeout < 0 ? -1 : timeout) + " " +
                                    std::to_string(force);
        booting_list->add_line(head + ustring(numbers.c_str()));
        prepare_delete_booting_list(booting_list->get_path());
    }
    if (!booting_list->commit_changes())
        KM_TRACE(trace_error, "common", "error saving changes in %s",
                 booting_list->get_path().mbcs_str());
}

void overwrite_reboot_parameters(int* force, long* timeout) {
    auto* user = user_file_variable_list::get_list();
    const std::unique_ptr<ustring> forced(user->get_value(u"__COMMIT_REBOOT_FORCED__"));
    if (forced && *forced == ustring(u"YES") && force) {
        KM_TRACE(trace_info, "common", "__COMMIT_REBOOT_FORCED__=YES found, forcing reboot");
        *force = 1;
    }
    const std::unique_ptr<ustring> seconds(user->get_value(u"__COMMIT_REBOOT_TIMEOUT__"));
    if (seconds && timeout) {
        *timeout = std::strtol(seconds->mbcs_str(), nullptr, 10);
        KM_TRACE(trace_info, "common", "__COMMIT_REBOOT_TIMEOUT__ found: value=%ld", *timeout);
    }
}

void prepare_delete_booting_list(const pathname& path) {
    KM_TRACE(trace_info, "common", "prepare_delete_booting_list %s", path.mbcs_str());
}

void remove_booting_list_file() { file(get_booting_file()).remove(0); }

} // namespace km
