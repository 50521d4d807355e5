// report_list: several reports that travel together
#pragma once

#include "report.h"
#include "vector.h"

namespace km {

// The setters that a list overrides apply to every element; its own `status` is -1 when all
// elements are delivered. Its elements use the keys from 0 on, so a list with a status directory
// stands alone in its message.
//
// Coded form: the base's form, iterator field 100 of reports.
class report_list : public report {
  public:
    report_list() = default;
    report_list(const report_list& other) = default;

    codable* clone() const override { return new report_list(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    // Clones; the caller keeps what it passes.
    void add(const report* one);
    void add_list(const report_list* of);
    int size() const { return reports_.size(); }
    report* operator[](int index) const { return reports_.at<report>(index); }

    using report::do_log;
    void do_log() override { do_log(nullptr); }
    // Element i with the key i; one that is delivered is passed over.
    void do_log(pathname* status_dir);
    void do_log(pathname* status_dir, unsigned long key) override;
    void to_text(filter& by, ustring_writer& to, formatter& form) override;
    void remove(filter& by, ustring_writer& to, formatter& form) override;
    // Each element gets a clone; the list keeps the protocol.
    void set_protocol(log_protocol* protocol) override;
    void set_factory(log_protocol_factory* factory) override;
    void set_user_name(const ustring& value) override;
    void set_user_name(const ustring& id, Persistent_Hashtable* table) override;
    void set_endpoint_name(const ustring& value) override;
    void set_endpoint_id(const ustring& value) override;
    void set_endpoint_guid(const ustring& value) override;
    void set_spo_oid(const ustring& value) override;
    void set_base_name(const ustring& value) override;
    void set_base_version(const ustring& value) override;
    void set_base_oid(const ustring& value) override;
    void set_origin_user(const ustring& value) override;
    int add_fail_good_targets(void* failed, void* good) override;
    // Each element by its own endpoint_id.
    void set_user_name_using_internal_id(Persistent_Hashtable* table);

  private:
    template <class Call> void each(Call call);
    void set_each(void (report::*setter)(const ustring&), const ustring& value);
    void sum_status();

    vector reports_;
};

} // namespace km
