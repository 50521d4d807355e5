// logoff: command that asks for the users to be logged off
//
// On this platform nobody is logged off; the command is kept, so that packages made for other
// platforms decode, run and report the same.
#pragma once

#include "command.h"

namespace km {

// Coded form: the command's fields; boolean fields 200 `force`, 201 `force_if_locked`, 202 to 205
// the four moments.
class logoff : public cm_command {
  public:
    codable* clone() const override { return new logoff(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    // A stanza "logoff" of the attributes that are set.
    void export_(exporter& to) const override;
    long codable_version() const override { return 1; }

    void can_execute(int action, int phase) override;
    // 9 in a distribution for devices. An install runs the steps of the commit behind its own.
    void do_execute(int action, int phase) override;
    void can_backup(int action) override;
    // A clone whose moment of an install is that of the undo. Without memory 10, and null.
    cm_command* get_undo_command(int action) override;
    using cm_command::save_command;
    void save_command(zipping_channel* out) override;
    ustring get_name() override;
    ustring get_log(int action) override;

    // Nothing on this platform.
    virtual void logoff_all_sessions();
    // Nothing but its trace on this platform.
    virtual void execute_logoff();

    std::int32_t force = 0;
    std::int32_t force_if_locked = 0;
    std::int32_t during_install = 0;
    std::int32_t during_remove = 0;
    std::int32_t during_undo = 0;
    std::int32_t during_commit = 0;

  private:
    void execute_in_reverse(int phase);
    void commit_moment();
};

} // namespace km
