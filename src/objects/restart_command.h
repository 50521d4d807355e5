// restart_command: a restart that has effect
//
// Coded form: that of CmRestart; the same stanza, "restart". In p_do, p_commit and
// p_commit_after_reboot it gives 3 for "after" and 1 for "immediately", by the option of what runs
// (during_install, during_remove, during_commit; an undo has its option in during_install), else 0.
// Nothing here reboots: the host does, behind the operation.
#pragma once

#include "restart.h"

namespace km {

class km_restart : public restart {
  public:
    codable* clone() const override { return new km_restart(*this); }
    const char* codable_name() const override;
    void export_(exporter& to) const override;
    void do_execute(int action, int phase) override;
    cm_command* get_undo_command(int action) override;

  private:
    int option(int action, int phase) const;
};

} // namespace km
