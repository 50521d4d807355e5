// logoff: command that asks for the users to be logged off
// format: docs/formats/package-file.md
// invariant: nobody is logged off on this platform
#include "logoff.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "package.h"
#include "trclog.h"

#include <new>

namespace km {

namespace {
// In the order of their coded fields, from 200 on, and of their keys in a definition.
struct attribute {
    const char* key;
    std::int32_t logoff::*value;
};
constexpr attribute attributes[] = {
    {"force", &logoff::force},
    {"force_if_locked", &logoff::force_if_locked},
    {"during_install", &logoff::during_install},
    {"during_remove", &logoff::during_remove},
    {"during_undo", &logoff::during_undo},
    {"during_commit", &logoff::during_commit},
};
constexpr int first_field = 200;
} // namespace

const char* logoff::codable_name() const { return "com.ombrel.sd.cmObjects.CmLogoff"; }

void logoff::encode_object(encoder& to) const {
    cm_command::encode_object(to);
    int field = first_field;
    for (const auto& one : attributes)
        to.encode_boolean_field(field++, this->*one.value);
}

codable* logoff::decode_object(decoder& from, long stream_version) {
    cm_command::decode_object(from, stream_version);
    int field = first_field;
    for (const auto& one : attributes)
        from.decode_boolean_field(field++, this->*one.value);
    return this;
}

void logoff::import(importer& from) {
    for (const auto& one : attributes)
        from.get_boolean(one.key, &(this->*one.value));
    cm_command::import(from);
}

void logoff::export_(exporter& to) const {
    to.begin_stanza("logoff");
    for (const auto& one : attributes)
        if (this->*one.value)
            to.put_boolean(one.key, this->*one.value);
    cm_command::export_(to);
    to.end_stanza();
}

void logoff::can_execute(int, int) { result = success; }
void logoff::can_backup(int) { result = success; }
void logoff::save_command(zipping_channel*) { result = success; } // it carries no data
ustring logoff::get_name() { return u"logoff"; }
ustring logoff::get_log(int) { return get_name(); }

void logoff::logoff_all_sessions() {}
void logoff::execute_logoff() { KM_TRACE(trace_info, "common", "execute_logoff"); }

void logoff::commit_moment() {
    KM_TRACE(trace_info, "common", "p_commit phase");
    if (during_commit)
        execute_logoff();
    execute_in_commit = 1;
}

void logoff::do_execute(int action, int phase) {
    execute_in_commit = 0;
    if (!package) {
        result = failure;
        return;
    }
    if (package->mode & m_device) {
        KM_TRACE(trace_error, "common", "the distribution is for devices");
        result = failure;
        return;
    }
    result = success;
    if (action == a_reverse) {
        execute_in_reverse(phase);
        return;
    }
    if (action != a_execute)
        return;
    KM_TRACE(trace_info, "common", "a_execute");
    if (phase == p_do) {
        KM_TRACE(trace_info, "common", "p_do phase");
        if (during_install)
            execute_logoff();
        commit_moment(); // an install at once commits in the same call
    } else if (phase == p_commit || phase == p_commit_after_reboot) {
        commit_moment();
    }
}

void logoff::execute_in_reverse(int phase) {
    KM_TRACE(trace_info, "common", "a_reverse");
    if (phase == p_do) {
        if (during_remove)
            execute_logoff();
    } else if (phase == p_commit || phase == p_commit_after_reboot) {
        commit_moment();
    } else if (phase != p_prepare && (phase < p_accept || phase > p_accept_cleanup)) {
        result = failure;
    }
}

cm_command* logoff::get_undo_command(int action) {
    if (action != a_execute && action != a_reverse)
        return nullptr;
    auto* undo = new (std::nothrow) logoff(*this);
    if (!undo) {
        result = fatal_failure;
        return nullptr;
    }
    undo->during_install = during_undo;
    return undo;
}

extern "C" codable* make_CmLogoff() { return new logoff; }

} // namespace km
