// report_words: operations and their modes as numbers and as words
// format: docs/formats/report.md
// invariant: a number that was given never changes its meaning
#include "report_words.h"

#include "engine_types.h"

#include <iterator>

namespace kmhost {

namespace {

constexpr const char* commands[] = {"",       "install",  "remove",  "undo",   "commit",
                                    "accept", "rollback", "upgrade", "repair", "verify"};

constexpr struct {
    unsigned bit;
    const char* word;
} modes[] = {
    {km::m_transactional, "transactional"},
    {km::m_preferably_not_transactional, "preferably-not-transactional"},
    {km::m_auto_commit, "auto-commit"},
    {km::m_undoable, "undoable"},
    {km::m_preferably_undoable, "preferably-undoable"},
    {km::m_undo_ability_transactional, "undo-at-commit"},
    {km::m_auto_accept, "auto-accept"},
    {km::m_during_reboot, "during-reboot"},
    {km::m_auto_reboot, "auto-reboot"},
    {km::m_force, "force"},
    {km::m_repair, "repair"},
    {km::m_source, "source"},
    {km::m_intelligent_remove, "intelligent"},
};

bool is_field(const std::string& name) {
    return km::formatter_token::choose_kind(km::ustring(name.c_str())) !=
           km::formatter_token::literal;
}

std::string field_names() {
    km::ustring names;
    km::formatter_token::kind_list(names);
    return names.mbcs_str();
}

} // namespace

long operation_number(const std::string& command) {
    for (size_t i = 1; i < std::size(commands); ++i)
        if (command == commands[i])
            return static_cast<long>(i);
    return 0;
}

std::string operation_word(long number) {
    return number > 0 && number < static_cast<long>(std::size(commands)) ? commands[number] : "";
}

std::string mode_words(long mode) {
    std::string words;
    for (const auto& one : modes)
        if (static_cast<unsigned long>(mode) & one.bit)
            words += (words.empty() ? "" : " ") + std::string(one.word);
    return words;
}

std::string fault_of_template(const std::string& form) {
    for (size_t at = 0; (at = form.find_first_of("%\\", at)) != std::string::npos; ++at) {
        const char mark = form[at];
        const size_t from = ++at;
        if (mark == '\\') {
            if (from == form.size() || (form[from] != 'n' && form[from] != 't'))
                return "Behind a backslash stands n or t";
            continue;
        }
        if ((at = form.find('%', from)) == std::string::npos)
            return "A % is open (%% is a percent sign)";
        const std::string name = form.substr(from, at - from);
        if (!name.empty() && !is_field(name))
            return "There is no field %" + name + "%; there are " + field_names();
    }
    return "";
}

km::ustring report_formatter::_get_optype_str(long operation_type) {
    return km::ustring(operation_word(operation_type).c_str());
}

km::ustring report_formatter::_get_cmop_mode_str(long, long operation_mode, int) {
    return km::ustring(mode_words(operation_mode).c_str());
}

} // namespace kmhost
