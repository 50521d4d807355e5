// log_protocol: delivery of a report on five channels, and its progress
// format: docs/formats/report-status.md
// invariant: a channel's bit is on the disk before the next channel is tried
#include "log_protocol.h"

#include "fileio.h"
#include "formatter.h"
#include "kill_point.h"
#include "report_filter.h"
#include "trclog.h"

namespace km {

namespace {

// In the order in which the channels run.
constexpr struct {
    long bit;
    int (log_protocol::*log)();
    const char* traced;
    const char* listener;
} channels[] = {
    {log_file, &log_protocol::do_file_log, "file", "file"},
    {log_db, &log_protocol::do_db_log, "db", "db"},
    {log_mail, &log_protocol::do_mail_log, "mail", "mail"},
    {log_event, &log_protocol::do_event_log, "evc", "evc"},
    {log_notice, &log_protocol::do_notice_log, "notice", "notice"},
};

constexpr unsigned long status_size = 4;

void tell_failure(const file_handle& file) {
    KM_TRACE(trace_error, "common", "Error %ld updating %s\n", static_cast<long>(file.get_state()),
             file.get_path().mbcs_str());
}

int put(file_handle& file, const char* word) {
    return file.start() && file.write(word, status_size) && file.flush();
}

// A distribution id of the form region.id, or id alone.
struct distribution {
    explicit distribution(const ustring& text) {
        const auto dot = text.find(u'.');
        has_region = dot != ustring::npos;
        if (has_region)
            region = text.substr(0, dot);
        id = has_region ? text.substr(dot + 1) : text;
    }
    bool has_region = false;
    ustring region, id;
};

bool holds_distribution(const vector& ids, const ustring& own_text) {
    const distribution own(own_text);
    for (int i = 0; i < ids.size(); ++i) {
        const distribution entry(*ids.at<ustring>(i));
        if (entry.id == own.id && (!entry.has_region || entry.region == own.region))
            return true;
    }
    return false;
}

void add_name(ustring& names, const char* name) {
    if (!names.empty())
        names += u", ";
    names += name;
}

} // namespace

void log_protocol::set_msg_status(file_handle* file, long status) {
    if (!file)
        return;
    char bytes[status_size];
    for (unsigned long i = 0; i < status_size; ++i)
        bytes[i] = static_cast<char>(static_cast<std::uint32_t>(status) >> (8 * i) & 0xFF);
    if (put(*file, bytes))
        return;
    tell_failure(*file);
    // A handle that failed once does nothing more. The older word on the disk would win over what
    // this delivery knows, so a new handle gets a try, now and for the channels to come.
    const pathname& path = file->get_path();
    if (!path.is_valid())
        return;
    file_handle fresh(path);
    if (!put(fresh, bytes))
        tell_failure(fresh);
}

long log_protocol::get_msg_status(file_handle* file) {
    if (!file)
        return 0;
    char bytes[status_size];
    if (!file->start() || !file->read(bytes, status_size) ||
        file->get_bytes_read() != status_size) {
        tell_failure(*file);
        return 0;
    }
    std::uint32_t word = 0;
    for (unsigned long i = 0; i < status_size; ++i)
        word |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return static_cast<std::int32_t>(word); // all ones is -1
}

void log_protocol::do_log(long& status, file_handle* file) {
    KM_TRACE_FUNCTION("log_protocol::do_log");
    for (const auto& channel : channels) {
        const bool todo = !(status & channel.bit);
        KM_TRACE(trace_info, "common", "%s log %s ...", channel.traced,
                 todo ? "to do" : "NOT to do");
        if (todo && (this->*channel.log)()) {
            KM_KILL_POINT("report.channel.done");
            status |= channel.bit;
            set_msg_status(file, status);
            KM_KILL_POINT("report.channel.noted");
        }
        KM_TRACE(trace_info, "common", "%s log %s - status = %ld", channel.traced,
                 status & channel.bit ? "done" : "NOT done", status);
    }
    // Bits of nobody, from a strange status file, do not keep a report for ever.
    const bool complete = (status & log_all) == log_all;
    KM_TRACE(trace_info, "common", "status %ld - complete logging %s ...", status,
             complete ? "done" : "NOT done");
    if (!complete || status == log_delivered)
        return;
    status = log_delivered;
    set_msg_status(file, status);
    KM_TRACE(trace_info, "common", "final status %ld ", status);
}

void log_protocol::get_logger_name(ustring& logger_name) { logger_name = ustring(u"(none)"); }

void log_protocol::get_listeners(long status, ustring& delivered, ustring& pending) {
    for (const auto& channel : channels)
        add_name(status & channel.bit ? delivered : pending, channel.listener);
}

void log_protocol::to_text(filter&, ustring_writer& to, formatter& form, long status) {
    ustring logger_name, delivered, pending;
    get_logger_name(logger_name);
    get_listeners(status, delivered, pending);
    form.write_formatted(to, *this, logger_name, pending);
}

int log_protocol::test(filter& by, int check_target) {
    KM_TRACE_FUNCTION("log_protocol::test");
    if (!by.distribution_ids.empty() && !holds_distribution(by.distribution_ids, distribution_id))
        return 0;
    if (check_target && !by.target_names.empty() && by.target_names.index_of(endpoint_name) < 0)
        return 0;
    if (by.logger_names.empty())
        return 1;
    ustring logger_name;
    get_logger_name(logger_name);
    return by.logger_names.index_of(logger_name) >= 0;
}

void log_protocol::initialize(long type, long mode, const ustring& endpoint, const ustring& its_id,
                              const ustring& its_guid, const ustring& object_id,
                              const ustring& base, const ustring& version_of_base,
                              const ustring& id_of_base, const ustring& origin, const ustring& time,
                              const ustring& user, const ustring& text, const ustring& exit_codes,
                              long state_word, const ustring& distribution, const ustring& package,
                              const ustring& package_version, const ustring& package_spname,
                              const pathname& data, int is_exception, int is_primary,
                              codable* further) {
    operation_type = type;
    operation_mode = mode;
    endpoint_name = endpoint;
    endpoint_id = its_id;
    endpoint_guid = its_guid;
    spo_oid = object_id;
    base_name = base;
    base_version = version_of_base;
    base_oid = id_of_base;
    origin_user = origin;
    exec_time = time;
    user_name = user;
    message = text;
    exit_codes_msg = exit_codes;
    state = state_word;
    distribution_id = distribution;
    name = package;
    version = package_version;
    spname = package_spname;
    path = data;
    exception = is_exception;
    primary = is_primary;
    opt_params = further;
}

void log_protocol::hand_over(log_protocol& to) const {
    to.initialize(operation_type, operation_mode, endpoint_name, endpoint_id, endpoint_guid,
                  spo_oid, base_name, base_version, base_oid, origin_user, exec_time, user_name,
                  message, exit_codes_msg, state, distribution_id, name, version, spname, path,
                  exception, primary, opt_params);
}

} // namespace km
