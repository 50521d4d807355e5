// status_words: status words, their letters and their table
//
// The state of a package as five letters: last action (I, R), state (P, C), sub-state (P, U, R),
// visibility (B pending reboot, D discovered, H hidden), outcome (C pending, E error, G); '-'
// stands for an empty place. "IC---" is installed and final.
#pragma once

#include "ustring.h"

#include <cstdint>

namespace km {

enum status_bit : std::uint32_t {
    db_install = 0x4000000,
    db_remove = 0x8000000,
    db_prepared = 0x10000,
    db_committed = 0x20000,
    db_undo_prepared = 0x100,
    db_undo_restore = 0x200,
    db_undoable = 0x400,
    db_reboot = 0x1000000,
    db_discovered = 0x40000000,
    db_hidden = 0x80000000,
    db_pending = 1,
    db_error = 2,
    db_good = 4
};

constexpr std::int32_t cs_error = 0x10000;
constexpr int cm_states = 7;
// Bits of places 2 and 3 by cm status.
extern const std::uint32_t cm_state_table[cm_states];

// A status outside the table gives no bits of places 2 and 3.
long cmstatus_to_dbstatus(long status);
long current_result_to_dbstatus(int result);
long lastaction_to_dbstatus(int action);
// A letter that does not belong to its place adds nothing; a text shorter than five ends there.
long dbstatus_to_long(const char* text);
// Writes five letters and a NUL.
void dbstatus_to_str(long word, char* text);
long dbstatus_to_cmstatus(const char* text);
// 1 install, 2 remove, -1 neither.
int dbstatus_to_lastaction(const char* text);

// "rwx,rx,r": letters of owner, group and others as bits, and back.
std::uint32_t get_unix_attributes(const ustring& text);
ustring get_unix_attributes_string(std::uint32_t attributes);

// Every " /" as "<*>", and back; the same string.
ustring& substitute_service_macro(ustring& text);
ustring& restore_service_macro(ustring& text);

} // namespace km
