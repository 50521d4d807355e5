// log_objects: the log lines of a package
// format: docs/formats/package-log.md
// invariant: a log file is only ever appended to
#include "log_objects.h"

#include "base/msg_supp.h"
#include "codec.h"
#include "command.h"
#include "exporter.h"
#include "file.h"
#include "importer.h"
#include "package.h"
#include "status_words.h"
#include "trclog.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace km {

namespace {
struct mode_word {
    std::uint32_t bit;
    const char16_t* text;
};
// In the order in which they are told; two bits print alike.
constexpr mode_word mode_words[] = {
    {m_not_transactional, u"not-transactional"},
    {m_preferably_not_transactional, u"not-transactional"},
    {m_transactional, u"transactional"},
    {m_auto_commit, u"auto-commit"},
    {m_undoable, u"undoable"},
    {m_preferably_undoable, u"preferably-undoable"},
    {m_auto_accept, u"auto-accept"},
    {m_undo_ability_transactional, u"undo-ability-transactional"},
    {m_preferably_not_in_reboot, u"preferably-not-in-reboot"},
    {m_during_reboot, u"during-reboot"},
    {m_auto_reboot, u"auto-reboot"},
    {m_no_reboot, u"no-reboot"},
    {m_preview_only, u"preview-only"},
    {m_force, u"force"},
    {m_repair, u"repair"},
    {m_source, u"source"},
    {m_delta, u"delta"},
};
} // namespace

ustring map_mode(long mode) {
    ustring text;
    for (const mode_word& one : mode_words) {
        if (!(static_cast<std::uint32_t>(mode) & one.bit))
            continue;
        if (!text.empty())
            text += ustring(u" | ");
        text += ustring(one.text);
    }
    return text;
}

log_object_list::log_object_list(const log_object_list& other)
    : codable(other), location(other.location), unix_group_id(other.unix_group_id),
      unix_user_id(other.unix_user_id), unix_attributes(other.unix_attributes) {}

log_object_list& log_object_list::operator=(const log_object_list& other) {
    location = other.location;
    unix_group_id = other.unix_group_id;
    unix_user_id = other.unix_user_id;
    unix_attributes = other.unix_attributes;
    return *this;
}

log_object_list::~log_object_list() { close_stream(); }

void log_object_list::close_stream() {
    if (stream_)
        std::fclose(stream_);
    stream_ = nullptr;
    header_written_ = 0;
}

void log_object_list::prepare_rights(const pathname& path) const {
    if (!unix_attributes && unix_user_id == -1 && unix_group_id == -1)
        return;
    file log(path);
    if (!log.exists()) {
        const int made = ::open(path.mbcs_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (made >= 0)
            ::close(made);
    }
    if (unix_attributes)
        log.set_attributes(unix_attributes);
    if (unix_group_id != -1)
        log.set_group(unix_group_id);
    if (unix_user_id != -1)
        log.set_owner(unix_user_id);
}

int log_object_list::log_package(cm_package* package) {
    file directory(location);
    if (!directory.exists() && !directory.mk_tree()) {
        const int error = errno;
        if (package->messages)
            package->messages->add(25L, location.mbcs_str(), std::to_string(error).c_str());
        KM_TRACE(trace_error, "common", "Unable to create the directory '%s'. errno = %d",
                 location.mbcs_str(), error);
        return 0;
    }
    const ustring name = package->is_backup_package
                             ? package->description
                             : package->name + ustring(u"^") + package->version;
    pathname path = location;
    path += name + ustring(u".log");
    close_stream();
    prepare_rights(path);
    stream_ = std::fopen(path.mbcs_str(), "ae");
    if (!stream_) {
        const int error = errno;
        if (package->messages)
            package->messages->add(24L, path.mbcs_str(), std::to_string(error).c_str());
        KM_TRACE(trace_error, "common", "Unable to open file '%s'. errno = %d", path.mbcs_str(),
                 error);
        return 0;
    }
    package_ = package;
    if (package->effective_mask() != 2)
        log_header();
    return 1;
}

void log_object_list::log_header() {
    if (!stream_) {
        KM_TRACE(trace_error, "common", "invalid file pointer, retunring...");
        return;
    }
    char now[60] = "";
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&seconds, &local) && !std::strftime(now, sizeof now, "%c", &local))
        now[0] = '\0';
    std::fputs("\n=================\n", stream_);
    if (package_->is_backup_package)
        std::fprintf(stream_, "Software Package: \"%s\"\n", package_->description.mbcs_str());
    else
        std::fprintf(stream_, "Software Package: \"%s^%s\"\n", package_->name.mbcs_str(),
                     package_->version.mbcs_str());
    std::fprintf(stream_, "Operation:         %s\n", package_->operation_name.mbcs_str());
    const ustring mode = map_mode(package_->mode);
    std::fprintf(stream_, "Mode:              %s\n", mode.empty() ? "(null)" : mode.mbcs_str());
    std::fprintf(stream_, "Time:              %s\n\n", now);
    std::fflush(stream_);
    header_written_ = 1;
}

int log_object_list::log_command(cm_command* command, int action, int phase) {
    const ustring text = command->get_log(action);
    const ustring outcome = command->map_result(action, phase);
    if (!stream_ || text.empty() || outcome.empty())
        return 1;
    if (!header_written_)
        log_header();
    for (const char* part : {"[", outcome.mbcs_str(), "]\t", text.mbcs_str(), "\n"})
        std::fputs(part, stream_);
    std::fflush(stream_);
    return 1;
}

const char* log_object_list::codable_name() const {
    return "com.ombrel.sd.cmObjects.LogObjectList";
}

void log_object_list::encode_object(encoder& to) const {
    to.encode_string_field(100, location.get_text());
    to.encode_integer_field(101, unix_group_id);
    to.encode_integer_field(102, unix_user_id);
    to.encode_integer_field(103, static_cast<std::int32_t>(unix_attributes));
}

codable* log_object_list::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    ustring path = location.get_text();
    from.decode_string_field(100, path);
    location = pathname(path);
    from.decode_integer_field(101, unix_group_id);
    from.decode_integer_field(102, unix_user_id);
    auto bits = static_cast<std::int32_t>(unix_attributes);
    from.decode_integer_field(103, bits);
    unix_attributes = static_cast<std::uint32_t>(bits);
    return this;
}

void log_object_list::import(importer& from) {
    from.get_pathname("location", &location);
    from.get_integer("unix_user_id", &unix_user_id);
    from.get_integer("unix_group_id", &unix_group_id);
    ustring attributes;
    if (from.get_string("unix_attributes", &attributes))
        unix_attributes = get_unix_attributes(attributes);
}

void log_object_list::export_(exporter& to) const {
    to.put_pathname("location", location);
    to.put_integer("unix_user_id", unix_user_id);
    to.put_integer("unix_group_id", unix_group_id);
    to.put_string("unix_attributes", get_unix_attributes_string(unix_attributes));
}

extern "C" codable* make_LogObjectList() { return new log_object_list; }

} // namespace km
