// status_words: status words, their letters and their table
// format: five letters; docs/formats/catalog.md
// invariant: nothing outside the tables is ever read, whatever a decoded entry holds
#include "status_words.h"

#include <cstring>

namespace km {

const std::uint32_t cm_state_table[cm_states] = {0,       0x10000, 0x20000, 0x10100,
                                                 0x10400, 0x20400, 0x20200};

namespace {

struct letter_row {
    int place;
    char letter;
    std::uint32_t set;  // bits that the letter gives
    std::uint32_t test; // bits of which one shows the letter
};

// The first row of a place that applies is the one printed.
constexpr letter_row letters[] = {
    {0, 'I', db_install, db_install},
    {0, 'R', db_remove, db_remove},
    {1, 'P', db_prepared, db_prepared},
    {1, 'C', db_committed, db_committed},
    {2, 'P', db_undo_prepared, db_undo_prepared},
    {2, 'R', db_undo_restore, db_undo_restore},
    {2, 'U', db_undoable, db_undoable},
    {3, 'B', db_reboot, db_reboot},
    {3, 'H', db_hidden | db_discovered, db_hidden},
    {3, 'D', db_discovered, db_discovered},
    {4, 'C', db_pending, db_pending},
    {4, 'E', db_error, db_error},
    {4, 'G', db_good, db_good},
};

constexpr std::uint32_t state_mask = 0xFFFF00;

// 32 bits, sign-extended, as they travel.
long as_long(std::uint32_t word) { return static_cast<std::int32_t>(word); }

} // namespace

long cmstatus_to_dbstatus(long status) {
    if (status == -1)
        return 0;
    const auto word = static_cast<std::uint32_t>(status);
    const std::uint32_t index = word & ~static_cast<std::uint32_t>(cs_error);
    const std::uint32_t error = word & static_cast<std::uint32_t>(cs_error) ? db_error : 0U;
    return as_long((index < cm_states ? cm_state_table[index] : 0U) | error);
}

long current_result_to_dbstatus(int result) {
    if (result >= 1 && result <= 5)
        return as_long(db_reboot | db_pending);
    return result == 6 ? static_cast<long>(db_pending) : 0;
}

long lastaction_to_dbstatus(int action) {
    return action == 1   ? static_cast<long>(db_install)
           : action == 2 ? static_cast<long>(db_remove)
                         : 0;
}

long dbstatus_to_long(const char* text) {
    std::uint32_t word = 0;
    for (int place = 0; place < 5 && text[place]; ++place)
        for (const auto& row : letters)
            if (row.place == place && row.letter == text[place])
                word |= row.set;
    return as_long(word);
}

void dbstatus_to_str(long status, char* text) {
    const auto word = static_cast<std::uint32_t>(status);
    std::strcpy(text, "-----");
    for (const auto& row : letters)
        if (text[row.place] == '-' && (word & row.test))
            text[row.place] = row.letter;
}

long dbstatus_to_cmstatus(const char* text) {
    const auto word = static_cast<std::uint32_t>(dbstatus_to_long(text));
    for (int status = 0; status < cm_states; ++status)
        if (cm_state_table[status] == (word & state_mask))
            return status + ((word & 0xFF) == db_error ? cs_error : 0);
    return cs_error;
}

int dbstatus_to_lastaction(const char* text) { return *text == 'I' ? 1 : *text == 'R' ? 2 : -1; }

namespace {

struct attribute_letter {
    int group;
    char16_t letter;
    std::uint32_t bit;
};

constexpr attribute_letter attribute_letters[] = {
    {0, u'r', 0x4000},   {0, u'w', 0x8000},   {0, u'x', 0x10000},   {0, u's', 0x20000},
    {0, u'l', 0x40000},  {1, u'r', 0x80000},  {1, u'w', 0x100000},  {1, u'x', 0x200000},
    {1, u's', 0x400000}, {2, u'r', 0x800000}, {2, u'w', 0x1000000}, {2, u'x', 0x2000000},
};

} // namespace

std::uint32_t get_unix_attributes(const ustring& text) {
    std::uint32_t bits = 0;
    int group = 0;
    for (unsigned i = 0; i < text.length(); ++i) {
        group += text[i] == u',';
        for (const auto& row : attribute_letters)
            if (row.group == group && row.letter == text[i])
                bits |= row.bit;
    }
    return bits;
}

ustring get_unix_attributes_string(std::uint32_t attributes) {
    ustring text;
    int group = 0;
    for (const auto& row : attribute_letters) {
        for (; group < row.group; ++group)
            text += u',';
        if (attributes & row.bit)
            text += row.letter;
    }
    return text;
}

ustring& substitute_service_macro(ustring& text) { return text.change(" /", "<*>"); }
ustring& restore_service_macro(ustring& text) { return text.change("<*>", " /"); }

} // namespace km
