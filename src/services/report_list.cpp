// report_list: several reports that travel together
// format: docs/formats/report.md
// invariant: every element is a report; the status is -1 only when each element's is
#include "report_list.h"

#include "codec.h"
#include "log_protocol.h"
#include "take_elements.h"
#include "trclog.h"

namespace km {

const char* report_list::codable_name() const { return "com.ombrel.sd.cmObjects.CmReportList"; }

void report_list::encode_object(encoder& to) const {
    codable::encode_object(to);
    vector_iterator elements(const_cast<vector*>(&reports_));
    to.encode_iterator(100, &elements);
}

codable* report_list::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    take_elements<report>(from, 100, reports_);
    return this;
}

void report_list::add(const report* one) {
    if (one)
        reports_.push_back(one->clone());
}

void report_list::add_list(const report_list* of) {
    // The count first: a list may be added to itself.
    for (int i = 0, count = of ? of->size() : 0; i < count; ++i)
        add((*of)[i]);
}

template <class Call> void report_list::each(Call call) {
    for (int i = 0; i < size(); ++i)
        call(*(*this)[i]);
}

void report_list::sum_status() {
    bool all = true;
    each([&](report& one) { all = all && one.status == log_delivered; });
    if (all)
        status = log_delivered;
}

void report_list::do_log(pathname* status_dir) {
    KM_TRACE_FUNCTION("report_list::do_log");
    // What is delivered stays so, whatever an older status file says.
    for (int i = 0; i < size(); ++i)
        if ((*this)[i]->status != log_delivered)
            (*this)[i]->do_log(status_dir, static_cast<unsigned long>(i));
    sum_status();
}

void report_list::do_log(pathname* status_dir, unsigned long) { do_log(status_dir); }

void report_list::to_text(filter& by, ustring_writer& to, formatter& form) {
    each([&](report& one) { one.to_text(by, to, form); });
}

void report_list::remove(filter& by, ustring_writer& to, formatter& form) {
    each([&](report& one) { one.remove(by, to, form); });
    sum_status();
}

void report_list::set_protocol(log_protocol* protocol) {
    report::set_protocol(protocol);
    each([&](report& one) {
        one.set_protocol(protocol ? dynamic_cast<log_protocol*>(protocol->clone()) : nullptr);
    });
}

void report_list::set_factory(log_protocol_factory* factory) {
    each([&](report& one) { one.set_factory(factory); });
}

void report_list::set_each(void (report::*setter)(const ustring&), const ustring& value) {
    each([&](report& one) { (one.*setter)(value); });
}

void report_list::set_user_name(const ustring& value) { set_each(&report::set_user_name, value); }

void report_list::set_user_name(const ustring& id, Persistent_Hashtable* table) {
    each([&](report& one) { one.set_user_name(id, table); });
}

void report_list::set_endpoint_name(const ustring& value) {
    set_each(&report::set_endpoint_name, value);
}

void report_list::set_endpoint_id(const ustring& value) {
    set_each(&report::set_endpoint_id, value);
}

void report_list::set_endpoint_guid(const ustring& value) {
    set_each(&report::set_endpoint_guid, value);
}

void report_list::set_spo_oid(const ustring& value) { set_each(&report::set_spo_oid, value); }

void report_list::set_base_name(const ustring& value) { set_each(&report::set_base_name, value); }

void report_list::set_base_version(const ustring& value) {
    set_each(&report::set_base_version, value);
}

void report_list::set_base_oid(const ustring& value) { set_each(&report::set_base_oid, value); }

void report_list::set_origin_user(const ustring& value) {
    set_each(&report::set_origin_user, value);
}

int report_list::add_fail_good_targets(void* failed, void* good) {
    each([&](report& one) { one.add_fail_good_targets(failed, good); });
    return 0;
}

void report_list::set_user_name_using_internal_id(Persistent_Hashtable* table) {
    each([&](report& one) { one.set_user_name(one.endpoint_id, table); });
}

} // namespace km

extern "C" km::codable* make_CmReportList() { return new km::report_list; }
