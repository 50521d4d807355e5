// report: what happened to one package in one operation
//
// The engine's host fills it in, it travels as a coded object, and its protocol delivers it. The
// word `status` tells which channels have it (log_protocol.h). A report never fails its caller. The
// page of the format: docs/formats/report.md.
#pragma once

#include "pathname.h"

#include <memory>

namespace km {

class filter;
class formatter;
class log_protocol;
class log_protocol_factory;
class NotificationPolicy;
class Persistent_Hashtable;
class ustring_writer;

// Whoever builds a report and delivers it without coding calls init_protocol when the fields are
// set; decoding does it by itself.
class report : public codable {
  public:
    report();
    // Takes the protocol over.
    explicit report(log_protocol* protocol);
    // Deep; the copy's protocol refers to the copy's opt_params.
    report(const report& other);
    report& operator=(const report&) = delete;
    ~report() override;

    codable* clone() const override { return new report(*this); }
    const char* codable_name() const override;
    // Gives the fields to the protocol if the decoder's state is good.
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    virtual void set_distribution_id(const ustring& value) { distribution_id = value; }
    virtual void set_name(const ustring& value) { name = value; }
    virtual void set_version(const ustring& value) { version = value; }
    virtual void set_spname(const ustring& value) { spname = value; }
    virtual void set_endpoint_guid(const ustring& value) { endpoint_guid = value; }
    virtual void set_operation_mode(long value) { operation_mode = value; }
    virtual void set_operation_type(long value) { operation_type = value; }
    virtual void set_result(const ustring& value) { result = value; }
    virtual void set_endpoint_name(const ustring& value) { endpoint_name = value; }
    virtual void set_endpoint_id(const ustring& value) { endpoint_id = value; }
    virtual void set_spo_oid(const ustring& value) { spo_oid = value; }
    virtual void set_base_name(const ustring& value) { base_name = value; }
    virtual void set_base_version(const ustring& value) { base_version = value; }
    virtual void set_base_oid(const ustring& value) { base_oid = value; }
    virtual void set_origin_user(const ustring& value) { origin_user = value; }
    virtual void set_exec_time(const ustring& value) { exec_time = value; }
    virtual void set_message(const ustring& value) { message = value; }
    virtual void set_exit_codes_msg(const ustring& value) { exit_codes_msg = value; }
    virtual void set_state(long value) { state = value; }
    virtual void set_status(long value) { status = value; }
    virtual void set_exception(int value) { exception = value; }
    virtual void set_primary(int value) { primary = value; }
    // Takes the object over; the protocol that held the former one forgets it.
    virtual void set_opt_params(codable* value);
    virtual void set_user_name(const ustring& value) { user_name = value; }
    // A new policy that delivers this report and takes it over: it must be on the heap.
    virtual NotificationPolicy* createNotificationPolicy();
    // Path of the data that kinds with a file of their own carry; nothing here.
    virtual void set_data(const pathname&) {}
    // The text in front of the last '@' of what the table (lent) holds for `id`; nothing for a null
    // table or an unknown id.
    virtual void set_user_name(const ustring& id, Persistent_Hashtable* table);
    // Writes the report's line if the filter selects it; a delivered one only if it asks for them.
    virtual void to_text(filter& by, ustring_writer& to, formatter& form);
    // Marks a selected report that is not delivered as delivered, and writes its line.
    virtual void remove(filter& by, ustring_writer& to, formatter& form);
    // Delivers without a memory of what is done.
    virtual void do_log() { do_log(nullptr, 0); }
    // Delivers to the channels that have not got it. The file `key` in the directory (lent) holds
    // the progress; it wins over `status` if it is four bytes long. A file that cannot be opened
    // only loses the memory. Without a protocol nothing happens.
    virtual void do_log(pathname* status_dir, unsigned long key);
    // Takes the protocol over.
    virtual void set_protocol(log_protocol* protocol);
    // Lends the factory to the protocol.
    virtual void set_factory(log_protocol_factory* factory);
    // 0.
    virtual int add_fail_good_targets(void* failed, void* good);

    // Gives all fields to the protocol.
    void init_protocol(const pathname& path);
    log_protocol* get_protocol() const { return protocol_.get(); }
    codable* get_opt_params() const { return opt_params_.get(); }
    // A data holder in opt_params, made there if there is none; null if something else is there.
    template <class Holder> Holder* need_data() {
        if (!opt_params_)
            set_opt_params(new Holder);
        return dynamic_cast<Holder*>(opt_params_.get());
    }

    ustring distribution_id;
    ustring name;
    ustring version;
    ustring spname;
    ustring endpoint_guid;
    ustring endpoint_name;
    ustring endpoint_id;
    ustring spo_oid;
    ustring base_name;
    ustring base_version;
    ustring base_oid;
    ustring origin_user;
    ustring exec_time;
    long operation_mode = 0;
    long operation_type = 0;
    ustring result;
    ustring further_text; // travels along; nothing sets it
    ustring message;
    long state = 0; // a catalog status word
    int exception = 0;
    int primary = 0;
    ustring exit_codes_msg;
    ustring user_name;
    long status = 0;
    mutable int encoded = 0;
    int decoded = 0;

  private:
    std::unique_ptr<log_protocol> protocol_;
    std::unique_ptr<codable> opt_params_;
};

} // namespace km
