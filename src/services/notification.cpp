// notification: who delivers a report, alone or in a list
// format: docs/formats/report.md
// invariant: a policy stands in one ring at most
#include "notification.h"

#include "codec.h"
#include "log_protocol.h"
#include "report.h"
#include "take_elements.h"
#include "trclog.h"
#include "ustring_writer.h"

namespace km {

void dump_report(const report* of) {
    KM_TRACE_FUNCTION("dump_report");
    const char* const line = "************************************************************";
    KM_TRACE(trace_info, "common", "%s", line);
    if (of) {
        KM_TRACE(trace_info, "common", "dist_id=%s name=%s version=%s \n",
                 of->distribution_id.mbcs_str(), of->name.mbcs_str(), of->version.mbcs_str());
        KM_TRACE(trace_info, "common", "spname=%s ep_name=%s \n", of->spname.mbcs_str(),
                 of->endpoint_name.mbcs_str());
        KM_TRACE(trace_info, "common", "epid=%s spoid=%s opmode=%ld optype=%ld \n",
                 of->endpoint_id.mbcs_str(), of->spo_oid.mbcs_str(), of->operation_mode,
                 of->operation_type);
        KM_TRACE(trace_info, "common", "result=%s \n", of->result.mbcs_str());
        KM_TRACE(trace_info, "common", "state= %ld  ", of->state);
        KM_TRACE(trace_info, "common", "exception=%d primary=%d status=%ld \n", of->exception,
                 of->primary, of->status);
    } else {
        KM_TRACE(trace_info, "common", "report not set");
    }
    KM_TRACE(trace_info, "common", "%s", line);
}

log_protocol_factory* ZNPNotificationPolicy::_factory = nullptr;

ZNPNotificationPolicy::ZNPNotificationPolicy() = default;
ZNPNotificationPolicy::ZNPNotificationPolicy(report* of) : report_(of) {}
ZNPNotificationPolicy::~ZNPNotificationPolicy() = default;

ZNPNotificationPolicy::ZNPNotificationPolicy(const ZNPNotificationPolicy& other)
    : NotificationPolicy(other),
      report_(other.report_ ? dynamic_cast<report*>(other.report_->clone()) : nullptr),
      decoded_(other.decoded_) {}

const char* ZNPNotificationPolicy::codable_name() const {
    return "com.ombrel.sd.cmObjects.ZNPNotificationPolicy";
}

void ZNPNotificationPolicy::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_object_field(100, report_.get());
}

codable* ZNPNotificationPolicy::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    report_.reset(from.take_owned<report>(100));
    decoded_ = 1;
    return this;
}

void ZNPNotificationPolicy::execute() {
    unsigned long key = 0;
    execute(nullptr, key);
}

void ZNPNotificationPolicy::execute(pathname* status_dir, unsigned long& key) {
    KM_TRACE_FUNCTION("ZNPNotificationPolicy::execute");
    if (is_disposable())
        return;
    dump_report(report_.get());
    report_->set_factory(_factory);
    report_->do_log(status_dir, key);
}

void ZNPNotificationPolicy::to_text(filter& by, ustring_writer& to, formatter& form) {
    if (!report_)
        return;
    report_->set_factory(_factory);
    report_->to_text(by, to, form);
}

void ZNPNotificationPolicy::remove(filter& by, ustring_writer& to, formatter& form) {
    if (!report_)
        return;
    report_->set_factory(_factory);
    report_->remove(by, to, form);
}

long ZNPNotificationPolicy::get_status() {
    dump_report(report_.get());
    return report_ ? report_->status : log_delivered;
}

void ZNPNotificationPolicy::set_status(long status) {
    if (report_)
        report_->set_status(status);
}

NotificationList::NotificationList(const NotificationList& other) : NotificationPolicy(other) {
    for (list_iterator each(other.ring_); each.hasMoreElements();)
        ring_.push_back(dynamic_cast<codable_link::link*>(each.nextElement()->clone()));
}

void NotificationList::add(NotificationPolicy* policy, NotificationPolicy* before) {
    if (before)
        ring_.insert_after(policy, before->prev);
    else
        ring_.push_back(policy);
}

void NotificationList::remove(NotificationPolicy* policy) { ring_.remove(policy); }

const char* ZNPNotificationList::codable_name() const {
    return "com.ombrel.sd.cmObjects.ZNPNotificationList";
}

void ZNPNotificationList::encode_object(encoder& to) const {
    codable::encode_object(to);
    list_iterator policies(ring_);
    to.encode_iterator(100, &policies);
}

codable* ZNPNotificationList::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    vector policies;
    take_elements<NotificationPolicy>(from, 100, policies);
    while (auto* policy = dynamic_cast<NotificationPolicy*>(policies.detach(0)))
        ring_.push_back(policy);
    return this;
}

// Until the call answers false.
template <class Call> void ZNPNotificationList::each(Call call) {
    for (list_iterator policies(ring_); policies.hasMoreElements();)
        if (!call(dynamic_cast<NotificationPolicy&>(*policies.nextElement())))
            return;
}

void ZNPNotificationList::execute() {
    unsigned long key = 0;
    execute(nullptr, key);
}

void ZNPNotificationList::execute(pathname* status_dir, unsigned long& key) {
    KM_TRACE_FUNCTION("ZNPNotificationList::execute");
    each([&](NotificationPolicy& policy) {
        policy.execute(status_dir, key);
        ++key;
        return true;
    });
}

int ZNPNotificationList::is_disposable() {
    int all = 1;
    each([&](NotificationPolicy& policy) { return (all = policy.is_disposable()) != 0; });
    return all;
}

void ZNPNotificationList::to_text(filter& by, ustring_writer& to, formatter& form) {
    each([&](NotificationPolicy& policy) {
        policy.to_text(by, to, form);
        return to.get_error() == 0;
    });
}

void ZNPNotificationList::remove(filter& by, ustring_writer& to, formatter& form) {
    each([&](NotificationPolicy& policy) {
        policy.remove(by, to, form);
        return to.get_error() == 0;
    });
}

} // namespace km

extern "C" km::codable* make_ZNPNotificationPolicy() { return new km::ZNPNotificationPolicy; }
extern "C" km::codable* make_ZNPNotificationList() { return new km::ZNPNotificationList; }
