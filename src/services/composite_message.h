// composite_message: several messages handled as one
#pragma once

#include "message.h"
#include "vector.h"

namespace km {

// Owns its members; every operation runs on each of them in order.
//
// Coded form: the message's form, iterator field 100 of messages.
class CompositeMessage : public Message {
  public:
    CompositeMessage() = default;
    CompositeMessage(const CompositeMessage& other) = default;

    codable* clone() const override { return new CompositeMessage(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;

    // Takes the message over.
    void add(Message* one) { messages_.push_back(one); }
    int size() const { return messages_.size(); }
    Message* operator[](int index) const { return messages_.at<Message>(index); }
    // The message with the larger id comes first; equal ones keep their order.
    void sort();

    void execute() override;
    int is_disposable() override;
    // 1 if every member's was; all are tried.
    int serialize(int dispose_if_done) override;
    int rollback() override;
    // Both stop as soon as the writer has failed.
    void to_text(filter& by, ustring_writer& to, formatter& form) override;
    void remove(filter& by, ustring_writer& to, formatter& form) override;

  private:
    template <class Call> void each(Call call);

    vector messages_;
};

// Of two Message* in an array: 1 if the second's id is below the first's, else 0.
int compare_msgs_ic(const void* first, const void* second);

} // namespace km
