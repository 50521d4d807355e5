// program_exit_codes: which exit code of a program means which result
#pragma once

#include "command.h"

#include <string>
#include <vector>

namespace km {

// A table of ranges, "LOW[-HIGH]:WORD" apart by commas, blanks allowed: "0:success, 1-9:failure,
// 75:temporary, 100:restart". The first range that holds the code decides; a code in none means
// what it means by default: 0 success, 75 a temporary failure, any other a failure.
//
// Words:  success 0, restart_now 1, restart_now_again 2, restart 3, restart_again 4, in_restart 5,
//         retry 6, warning 7, temporary 8, failure 9
// "again" runs the program once more behind the restart; "retry" stops the operation, and resuming
// it runs the program once more.
class program_exit_codes {
  public:
    // False, with what is wrong in words, for a text that is no such table; then it is empty.
    bool read(const std::string& text, std::string& fault);
    cm_result result_of(int code) const;

  private:
    bool read_range(const std::string& text, std::string& fault);

    struct range {
        int low, high;
        cm_result result;
    };
    std::vector<range> ranges_;
};

} // namespace km
