// report_words: operations and their modes as numbers and as words
#pragma once

#include "formatter.h"

#include <string>

namespace kmhost {

// The number that stands for a command in a report: 1 install, 2 remove, 3 undo, 4 commit,
// 5 accept, 6 rollback, 7 upgrade, 8 repair, 9 verify; 0 any other. They lie in files: a new
// command gets a new number.
long operation_number(const std::string& command);
// The command; "" for a number of nobody.
std::string operation_word(long number);

// Option bits of a mode as the options of the command line without their dashes, separated by a
// blank; "" for none.
std::string mode_words(long mode);

// Why a template is not what its writer meant: it has a field that no report has, or something that
// would be dropped in silence. "" for a good one.
std::string fault_of_template(const std::string& form);

// A template that writes these words.
class report_formatter : public km::formatter {
  public:
    using km::formatter::formatter;
    km::ustring _get_optype_str(long operation_type) override;
    km::ustring _get_cmop_mode_str(long operation_type, long operation_mode, int unused) override;
};

} // namespace kmhost
