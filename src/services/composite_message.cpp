// composite_message: several messages handled as one
// format: docs/formats/report.md
// invariant: every member is a Message
#include "composite_message.h"

#include "codec.h"
#include "take_elements.h"
#include "ustring_writer.h"

#include <algorithm>
#include <vector>

namespace km {

const char* CompositeMessage::codable_name() const {
    return "com.ombrel.sd.cmObjects.CompositeMessage";
}

void CompositeMessage::encode_object(encoder& to) const {
    Message::encode_object(to);
    vector_iterator members(const_cast<vector*>(&messages_));
    to.encode_iterator(100, &members);
}

codable* CompositeMessage::decode_object(decoder& from, long stream_version) {
    Message::decode_object(from, stream_version);
    take_elements<Message>(from, 100, messages_);
    return this;
}

int compare_msgs_ic(const void* first, const void* second) {
    const auto* one = *static_cast<const Message* const*>(first);
    const auto* other = *static_cast<const Message* const*>(second);
    return other->get_id() < one->get_id() ? 1 : 0;
}

void CompositeMessage::sort() {
    std::vector<Message*> members;
    while (auto* member = dynamic_cast<Message*>(messages_.detach(0)))
        members.push_back(member);
    std::stable_sort(members.begin(), members.end(), [](const Message* a, const Message* b) {
        return compare_msgs_ic(&a, &b) == 1;
    });
    for (auto* member : members)
        messages_.push_back(member);
}

// Until the call answers false.
template <class Call> void CompositeMessage::each(Call call) {
    for (int i = 0; i < size(); ++i)
        if (!call(*(*this)[i]))
            return;
}

void CompositeMessage::execute() {
    each([](Message& one) {
        one.execute();
        return true;
    });
}

int CompositeMessage::is_disposable() {
    int all = 1;
    each([&](Message& one) { return (all = one.is_disposable()) != 0; });
    return all;
}

int CompositeMessage::serialize(int dispose_if_done) {
    int all = 1;
    each([&](Message& one) {
        all &= one.serialize(dispose_if_done);
        return true;
    });
    return all;
}

int CompositeMessage::rollback() {
    int all = 1;
    each([&](Message& one) {
        all &= one.rollback();
        return true;
    });
    return all;
}

void CompositeMessage::to_text(filter& by, ustring_writer& to, formatter& form) {
    each([&](Message& one) {
        one.to_text(by, to, form);
        return to.get_error() == 0;
    });
}

void CompositeMessage::remove(filter& by, ustring_writer& to, formatter& form) {
    each([&](Message& one) {
        one.remove(by, to, form);
        return to.get_error() == 0;
    });
}

} // namespace km

extern "C" km::codable* make_CompositeMessage() { return new km::CompositeMessage; }
