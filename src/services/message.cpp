// message: a report in a file until it is delivered
// format: docs/formats/report.md
// invariant: the directory of the progress outlives the file
#include "message.h"

#include "StatusHandler.h"
#include "base_configuration.h"
#include "codec.h"
#include "file.h"
#include "file_info.h"
#include "kill_point.h"
#include "report.h"
#include "trclog.h"

#include <ctime>

namespace km {

Message::Message(const Message& other)
    : codable(other),
      policy_(other.policy_ ? dynamic_cast<NotificationPolicy*>(other.policy_->clone()) : nullptr),
      id_(other.id_) {}

void Message::encode_object(encoder& to) const {
    codable::encode_object(to);
    to.encode_object_field(100, policy_.get());
    to.encode_integer_field(101, static_cast<std::int32_t>(id_));
}

codable* Message::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    policy_.reset(from.take_owned<NotificationPolicy>(100));
    std::int32_t seconds = 0;
    from.decode_integer_field(101, seconds);
    id_ = static_cast<std::uint32_t>(seconds);
    return this;
}

void Message::execute() {
    if (policy_)
        policy_->execute();
}

int Message::is_disposable() { return policy_ ? policy_->is_disposable() : 1; }

void Message::to_text(filter& by, ustring_writer& to, formatter& form) {
    if (policy_)
        policy_->to_text(by, to, form);
}

void Message::remove(filter& by, ustring_writer& to, formatter& form) {
    if (policy_)
        policy_->remove(by, to, form);
}

namespace {

// The character in the file's name.
char character_of(priority_t priority) {
    switch (priority) {
    case priority_b:
        return 'B';
    case priority_c:
        return 'C';
    default:
        return 'A';
    }
}

} // namespace

const pathname& ZNPMessage::get_work_dir() {
    static const pathname work_dir = [] {
        pathname dir(base_configuration().get_var(u"working_dir"));
        dir += ustring(u"\\message\\");
        return dir;
    }();
    return work_dir;
}

ustring ZNPMessage::get_msg_prefix() { return ustring(u"MS"); }

const char* ZNPMessage::codable_name() const { return "com.ombrel.sd.cmObjects.ZNPMessage"; }

void ZNPMessage::encode_object(encoder& to) const {
    Message::encode_object(to);
    to.encode_string_field(100, path_.get_text());
    to.encode_integer_field(101, priority_);
}

codable* ZNPMessage::decode_object(decoder& from, long stream_version) {
    Message::decode_object(from, stream_version);
    ustring text;
    std::int32_t priority = priority_a;
    from.decode_string_field(100, text);
    from.decode_integer_field(101, priority);
    priority_ = static_cast<priority_t>(priority);
    // A stream names no place: what it named would be written to and removed.
    const ustring name = pathname(text).get_file();
    if (name.matches_pattern(get_msg_prefix() + ustring(u"?*")) && name.find(u'/') == ustring::npos)
        path_ = get_work_dir() + name;
    else
        from.set_status(decoder::failed);
    valid_ = path_.is_valid();
    return this;
}

int ZNPMessage::init(report* of, priority_t priority) {
    KM_TRACE_FUNCTION("ZNPMessage::init");
    set_policy(of->createNotificationPolicy());
    priority_ = priority;
    valid_ = StatusHandler::make_msg_file(id_, character_of(priority), path_, get_work_dir(),
                                          get_msg_prefix());
    if (!valid_)
        path_ = pathname();
    else
        // A former message of this name may have died while it disposed.
        file(get_status_directory()).remove(1);
    return valid_;
}

pathname ZNPMessage::get_status_directory() const {
    return pathname(path_.get_text() + ustring(u"_msg_statuses"));
}

void ZNPMessage::execute() {
    KM_TRACE_FUNCTION("ZNPMessage::execute");
    if (!policy_)
        return;
    pathname status_dir = get_status_directory();
    file directory(status_dir);
    if (path_.is_valid() && directory.exists() && !directory.is_directory()) {
        KM_TRACE(trace_warning, "common", "%s is not a directory. Recreating...",
                 status_dir.mbcs_str());
        directory.remove(1);
    }
    const bool usable = path_.is_valid() && directory.mk_tree();
    if (!usable)
        KM_TRACE(trace_error, "common", "Unable to create %s. NOT using message directory",
                 status_dir.mbcs_str());
    unsigned long key = 0;
    policy_->execute(usable ? &status_dir : nullptr, key);
}

int ZNPMessage::serialize(int dispose_if_done) {
    KM_TRACE_FUNCTION("ZNPMessage::serialize");
    if (dispose_if_done && is_disposable())
        return dispose();
    return StatusHandler().commit(path_, this);
}

int ZNPMessage::rollback() { return path_.is_valid() && StatusHandler().rollback(path_); }

int ZNPMessage::dispose() {
    KM_TRACE_FUNCTION("ZNPMessage::dispose");
    if (!path_.is_valid())
        return 1;
    // While the file is there, what is known of its deliveries must be there too.
    if (!StatusHandler().remove(path_))
        return 0;
    KM_KILL_POINT("message.dispose.file_gone");
    return file(get_status_directory()).remove(1);
}

namespace {

// Names that were made and never written; young ones may be somebody's who is about to.
void remove_unwritten() {
    constexpr long old_enough = 3600;
    vector infos;
    file(ZNPMessage::get_work_dir())
        .list_file_info(infos, ZNPMessage::get_msg_prefix() + ustring(u"*"));
    for (int i = 0; i < infos.size(); ++i) {
        const auto& one = *infos.at<file_info>(i);
        const pathname path = ZNPMessage::get_work_dir() + ustring(one.name);
        const bool aged = one.size == 0 && ::time(nullptr) - one.modification_time > old_enough;
        if (aged && (one.mode & 0xF000) == 0 &&
            file(path.get_text() + ustring(u".bak")).get_size() <= 0 &&
            !file(path.get_text() + ustring(u".wrn")).exists())
            StatusHandler().remove(path);
    }
}

} // namespace

void ZNPMessage::remove_orphans() {
    KM_TRACE_FUNCTION("ZNPMessage::remove_orphans");
    const ustring end_of_name(u"_msg_statuses");
    vector names;
    file(get_work_dir()).list(names, get_msg_prefix() + ustring(u"*") + end_of_name);
    for (int i = 0; i < names.size(); ++i) {
        const ustring& name = *names.at<ustring>(i);
        const ustring message = name.substr(0, name.length() - end_of_name.length());
        bool owned = false;
        for (const char16_t* end : {u"", u".bak", u".wrn"})
            owned = owned || file(get_work_dir() + (message + ustring(end))).exists();
        if (!owned && name.find(u'\\') == ustring::npos)
            file(get_work_dir() + name).remove(1);
    }
    remove_unwritten();
}

} // namespace km

extern "C" km::codable* make_ZNPMessage() { return new km::ZNPMessage; }
