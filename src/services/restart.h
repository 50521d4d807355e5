// restart: command that asks for a reboot
//
// The engine also makes one of its own, on the stack, for the conditions around a reboot. What
// reaches the machine goes through the hooks of the host.
#pragma once

#include "command.h"

namespace km {

// Coded form: the command's fields; integer fields 200 `restart_type`, 201 to 204 the four options,
// long field 205 `timeout`, boolean field 206 `force_restart`.
class restart : public cm_command {
  public:
    enum reboot_option : int { none = 0, after = 1, immediately = 2 };
    enum autoexec_action : int { add_module = 0, remove_module = 1 };

    codable* clone() const override { return new restart(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer& from) override;
    void export_(exporter& to) const override;
    long codable_version() const override { return 1; }

    void can_execute(int action, int phase) override;
    // Marks the package, so that the engine does not ask for a reboot itself. 9 in a distribution
    // for devices.
    void do_execute(int action, int phase) override;
    void can_backup(int action) override;
    // A clone whose option for an install is that of the undo.
    cm_command* get_undo_command(int action) override;
    using cm_command::save_command;
    void save_command(zipping_channel* out) override;
    int is_to_be_executed() override;
    ustring get_name() override;
    ustring get_log(int action) override;
    // Empty where the command was not to act, so that no line of the log tells of it.
    ustring map_result(int action, int phase) override;

    // Makes sure that the operation goes on after the reboot. 1 or 0.
    virtual int prepare_restart_condition();
    virtual int remove_restart_condition();
    virtual int force_shutdown();

    // Asks the host for the reboot; it comes after the operation.
    void execute_restart();
    void remove_restart();
    void test_and_restart(int reserved);
    void test_and_restart(int reserved, const ustring& name, const ustring& version);
    // Sets `result` to 9 for a reboot that did not come in time; here it always did. 1.
    int verify_reboot_timeout(int reserved_1, int reserved_2, int reserved_3);
    // The statement that loads a module at the start of another platform. 1 or 0.
    int change_autoexncf(int action);

    // "none", "after" or "immediately"; "none" for any other value.
    static const char* from_reboot_option(int option);

    std::int32_t restart_type = 1; // 1 shut down, else restart
    std::int32_t during_install = none;
    std::int32_t during_remove = none;
    std::int32_t during_undo = none;
    std::int32_t during_commit = none;
    long timeout = -1; // seconds, -1 no limit
    std::int32_t force_restart = 0;
};

} // namespace km
