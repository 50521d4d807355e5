// message: a report in a file until it is delivered
//
// init makes the file, serialize(0) writes it: from then on the report is not lost. execute
// delivers what is undone; its progress lies in the directory P + "_msg_statuses". serialize(1)
// writes the new state, or takes file and directory away when all is delivered. After a crash
// StatusHandler::load gives the messages back, and execute and serialize(1) follow again.
//
// A process that dies while it disposes has removed the file first: what is left of the directory
// can never make a channel run again. The page of the format: docs/formats/report.md.
#pragma once

#include "notification.h"

#include <memory>

namespace km {

// The policy is owned; a message without one has nothing to deliver.
//
// Coded form: the base's form, object field 100 policy, integer field 101 id.
class Message : public codable {
  public:
    Message() = default;
    Message(const Message& other);
    Message& operator=(const Message&) = delete;

    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    virtual void execute();
    virtual int is_disposable();
    // Brings the message to the disk; with `dispose_if_done` one that is delivered goes away. 1 or
    // 0.
    virtual int serialize(int dispose_if_done) = 0;
    virtual int rollback() = 0;
    virtual void to_text(filter& by, ustring_writer& to, formatter& form);
    virtual void remove(filter& by, ustring_writer& to, formatter& form);

    // Takes the policy over.
    void set_policy(NotificationPolicy* policy) { policy_.reset(policy); }
    NotificationPolicy* get_policy() const { return policy_.get(); }
    long get_id() const { return id_; }

  protected:
    std::unique_ptr<NotificationPolicy> policy_;
    long id_ = 0; // seconds, of the file's name
};

// With its character in the file's name; any other value counts as the first.
enum priority_t : std::int32_t { priority_a = 0, priority_b = 1, priority_c = 2 };

// Coded form: the message's form, string field 100 path, integer field 101 priority. Of the path
// only the name counts when it is read: the file lies in the message directory of this process.
class ZNPMessage : public Message {
  public:
    ZNPMessage() = default;
    ZNPMessage(const ZNPMessage& other) = default;

    codable* clone() const override { return new ZNPMessage(*this); }
    const char* codable_name() const override;
    // A name that is none of a message gives status 2.
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    // Takes the report over, and makes the file. is_valid(): 1, or 0 if that failed.
    int init(report* of, priority_t priority);
    void execute() override;
    int serialize(int dispose_if_done) override;
    int rollback() override;
    // Removes the file, then the directory of the progress; that stays if the file does. 1 or 0.
    int dispose();

    int is_valid() const { return valid_; }
    const pathname& get_path() const { return path_; }
    priority_t get_priority() const { return priority_; }
    pathname get_status_directory() const;

    // <working_dir>/message/, as it is at the first call.
    static const pathname& get_work_dir();
    static ustring get_msg_prefix(); // "MS"
    // Removes what no message needs any more: directories of progress whose message is gone (a
    // crash of dispose() leaves them), and files that were made an hour ago and never written.
    static void remove_orphans();

  private:
    pathname path_;
    int valid_ = 0;
    priority_t priority_ = priority_a;
};

} // namespace km
