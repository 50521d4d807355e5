// notification: who delivers a report, alone or in a list
#pragma once

#include "link_list.h"
#include "pathname.h"

#include <memory>

namespace km {

class filter;
class formatter;
class log_protocol_factory;
class report;
class ustring_writer;

// Delivers what it holds; a repeated execute delivers only what is still undone. A policy stands in
// one list at most.
class NotificationPolicy : public codable_link::link {
  public:
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    // Without a memory of what is done.
    virtual void execute() = 0;
    // The directory (lent, may be null) holds the progress, in files that are named by keys from
    // `key` on.
    virtual void execute(pathname* status_dir, unsigned long& key) = 0;
    // 1 if nothing is left to deliver.
    virtual int is_disposable() = 0;
    virtual void to_text(filter& by, ustring_writer& to, formatter& form) = 0;
    virtual void remove(filter& by, ustring_writer& to, formatter& form) = 0;
    virtual long get_status() = 0;
    virtual void set_status(long status) = 0;
};

// Delivers one report, which it owns. Without a report there is nothing to deliver.
//
// Coded form: the base's form, object field 100 report.
class ZNPNotificationPolicy : public NotificationPolicy {
  public:
    ZNPNotificationPolicy();
    // Takes the report over.
    explicit ZNPNotificationPolicy(report* of);
    ZNPNotificationPolicy(const ZNPNotificationPolicy& other);
    ZNPNotificationPolicy& operator=(const ZNPNotificationPolicy&) = delete;
    ~ZNPNotificationPolicy() override;

    // The factory of all policies of the process, lent; null before it is set.
    static void set_factory(log_protocol_factory* factory) { _factory = factory; }
    static log_protocol_factory* get_factory() { return _factory; }

    codable* clone() const override { return new ZNPNotificationPolicy(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    void execute() override;
    void execute(pathname* status_dir, unsigned long& key) override;
    int is_disposable() override { return get_status() == -1; }
    void to_text(filter& by, ustring_writer& to, formatter& form) override;
    void remove(filter& by, ustring_writer& to, formatter& form) override;
    long get_status() override;
    void set_status(long status) override;

    report* get_report() const { return report_.get(); }
    int is_decoded() const { return decoded_; }

  private:
    static log_protocol_factory* _factory;
    std::unique_ptr<report> report_;
    int decoded_ = 0;
};

// A ring of policies, which it owns.
class NotificationList : public NotificationPolicy {
  public:
    NotificationList() = default;
    // Deep.
    NotificationList(const NotificationList& other);
    NotificationList& operator=(const NotificationList&) = delete;

    using NotificationPolicy::remove;
    // Takes the policy over and puts it in front of `before`, at the end for null.
    virtual void add(NotificationPolicy* policy, NotificationPolicy* before);
    // Takes the policy out and deletes it.
    virtual void remove(NotificationPolicy* policy);
    int size() const { return ring_.size(); }

  protected:
    list ring_;
};

// Coded form: the base's form, iterator field 100 of policies.
class ZNPNotificationList : public NotificationList {
  public:
    codable* clone() const override { return new ZNPNotificationList(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    using NotificationList::remove;
    void execute() override;
    // `key` rises by one behind each element.
    void execute(pathname* status_dir, unsigned long& key) override;
    int is_disposable() override;
    // Both stop as soon as the writer has failed.
    void to_text(filter& by, ustring_writer& to, formatter& form) override;
    void remove(filter& by, ustring_writer& to, formatter& form) override;
    long get_status() override { return 0; }
    void set_status(long) override {}

  private:
    template <class Call> void each(Call call);
};

// The report's fields as a block of the trace.
void dump_report(const report* of);

} // namespace km
