// log_protocol: delivery of a report on five channels, and its progress
//
// The progress of a report is one word, a bit for each channel that has taken it, and -1 when all
// have. With a status file each bit is on the disk before the next channel is tried, so that a
// delivery that is repeated after a crash begins with the channel that was under way: each channel
// gets the report once, but for the one that the crash struck between its own answer and the bit.
// The page of the status file: docs/formats/report-status.md.
#pragma once

#include "pathname.h"

namespace km {

class file_handle;
class filter;
class formatter;
class log_protocol_factory;
class ustring_writer;

enum log_channel : long {
    log_file = 0x01,
    log_db = 0x02,
    log_mail = 0x04,
    log_event = 0x08,
    log_notice = 0x10,
    log_all = 0x1F,
    log_delivered = -1
};

// The fields are copies of the report's, but for opt_params, which is lent.
class log_protocol : public codable {
  public:
    // Null: a concrete protocol that is to stand in a copied report overrides it.
    codable* clone() const override { return nullptr; }
    const char* codable_name() const override { return nullptr; }
    void import(importer&) override {}
    void export_(exporter&) const override {}

    // 1 if the filter selects the report: it is empty, or every kind of entry that it has matches.
    // A distribution id matches if the ids are equal and the regions (in front of the first '.')
    // are, or the entry has none. Target names, looked at if `check_target` is not 0, and logger
    // names match as they stand.
    virtual int test(filter& by, int check_target);
    // One line with all fields; its listeners are the channels that `status` leaves to do.
    virtual void to_text(filter& by, ustring_writer& to, formatter& form, long status);
    virtual void do_log(long& status) { do_log(status, nullptr); }
    // Tries each channel whose bit is clear. One that fails keeps its bit clear and the others are
    // tried all the same. `file` (lent) gets the word behind each channel that is done, and may be
    // null; if it cannot be written the progress lives in `status` alone.
    virtual void do_log(long& status, file_handle* file);
    // Not 0: the channel holds the report, or is not set up. To be answered only when it is sure.
    virtual int do_file_log() { return 1; }
    virtual int do_notice_log() { return 1; }
    virtual int do_db_log() { return 1; }
    virtual int do_mail_log() { return 1; }
    virtual int do_event_log() { return 1; }
    virtual int do_initiate_log() { return 1; }
    virtual int do_send_log() { return 1; }
    // Sets the fields; the body here does just that.
    virtual void initialize(long operation_type, long operation_mode, const ustring& endpoint_name,
                            const ustring& endpoint_id, const ustring& endpoint_guid,
                            const ustring& spo_oid, const ustring& base_name,
                            const ustring& base_version, const ustring& base_oid,
                            const ustring& origin_user, const ustring& exec_time,
                            const ustring& user_name, const ustring& message,
                            const ustring& exit_codes_msg, long state,
                            const ustring& distribution_id, const ustring& name,
                            const ustring& version, const ustring& spname, const pathname& path,
                            int exception, int primary, codable* opt_params) = 0;
    // Lends the factory; nothing in the base.
    virtual void set_factory(log_protocol_factory*) {}
    // "(none)" in the base.
    virtual void get_logger_name(ustring& logger_name);
    // Names of the channels with their bit set and clear, in the order in which they run, separated
    // by ", ".
    virtual void get_listeners(long status, ustring& delivered, ustring& pending);

    // Four bytes, least significant first, at the start of the file, flushed. Nothing for a null
    // handle. A failure is traced, and a new handle on the file gets one more try.
    static void set_msg_status(file_handle* file, long status);
    // 0 for a null handle, and, with a trace, for a file that cannot be read.
    static long get_msg_status(file_handle* file);

    // Calls the other's initialize with all fields of this one.
    void hand_over(log_protocol& to) const;

    long operation_type = 0;
    long operation_mode = 0;
    ustring message;
    ustring endpoint_name;
    ustring endpoint_id;
    ustring endpoint_guid;
    ustring spo_oid;
    ustring base_name;
    ustring base_version;
    ustring base_oid;
    ustring origin_user;
    ustring exec_time;
    long state = 0;
    ustring distribution_id;
    ustring spname;
    ustring name;
    ustring version;
    pathname path;
    int exception = 0;
    int primary = 0;
    codable* opt_params = nullptr;
    ustring exit_codes_msg;
    ustring user_name;
};

} // namespace km
