// engine_types: actions, phases, operations, statuses and mode bits
#pragma once

#include <cstdint>

namespace km {

// What is done with a command.
enum action : int {
    a_execute = 1,
    a_reverse = 2,
    a_verify_execute = 3, // is what a_execute did still in place?
    a_verify_reverse = 4
};

// In which part of an operation. 1, 3, 4 and 5 change the system.
enum phase : int {
    p_do = 1,                   // outside a transaction; also the verify of a committed state
    p_prepare = 2,              // first half of a transaction; also rollback
    p_commit = 3,               // second half
    p_commit_before_reboot = 4, // commit, first pass, a reboot will follow
    p_commit_after_reboot = 5,  // commit, second pass
    p_accept = 6,
    p_do_cleanup = 7,
    p_prepare_cleanup = 8,
    p_commit_cleanup = 9,
    p_accept_cleanup = 10,
    p_backup_finish = 11 // on a backup package before it is saved, with p_commit_before_reboot
};

// Operations of a package; 0 to 10 are the rows of the state diagram.
enum operation : int {
    o_execute = 0,
    o_execute_undoable = 1,
    o_prepare = 2,
    o_prepare_undoable = 3,
    o_prepare_undo_prepare = 4,
    o_rollback = 5,
    o_undo = 6,
    o_undo_ep = 7, // an undo that stopped prepared
    o_verify = 8,
    o_accept = 9,
    o_commit = 10,
    o_any = 11, // the gate alone: needs a committed package
    o_none = 14
};

// States of a package; cs_error (0x10000) stands beside them in status_words.h.
enum cm_status_value : int {
    cs_initial = 0,
    cs_prepared = 1,
    cs_committed = 2,
    cs_prepared_undo_prepared = 3,
    cs_prepared_undoable = 4,
    cs_committed_undoable = 5,
    cs_committed_undo_prepared = 6
};

// Option bits of an operation.
enum mode_bit : std::uint32_t {
    m_not_transactional = 0x1,            // printed only
    m_preferably_not_transactional = 0x2, // at once if possible, else prepare
    m_transactional = 0x4,                // prepare now, commit later
    m_auto_commit = 0x8,                  // commit within the same call
    m_undoable = 0x10,                    // make a backup package
    m_preferably_undoable = 0x20,         // a backup if possible
    m_auto_accept = 0x40,                 // accept within the same call
    m_undo_ability_transactional = 0x80,  // with transactional: the backup is made at commit
    m_preferably_not_in_reboot = 0x100,
    m_during_reboot = 0x200,
    m_auto_reboot = 0x400, // the engine may reboot by itself
    m_preview_only = 0x800,
    m_force = 0x1000,       // over any state
    m_repair = 0x2000,      // re-apply only what is broken
    m_source = 0x4000,      // re-apply from the source host
    m_binary_file = 0x8000, // the package came from a package file, not from a profile
    m_delta = 0x40000,
    m_no_reboot = 0x80000, // printed only
    m_device = 0x400000,   // a distribution for devices
    m_intelligent_remove = 0x1000000
};

// True for the phases that clean up or accept; nothing is logged in them.
constexpr bool is_quiet_phase(int phase) {
    return phase >= p_do_cleanup && phase <= p_accept_cleanup;
}

// True for the phases that change the system: do, and the three kinds of commit.
constexpr bool is_changing_phase(int phase) {
    return phase == p_do || phase == p_commit || phase == p_commit_before_reboot ||
           phase == p_commit_after_reboot;
}

} // namespace km
