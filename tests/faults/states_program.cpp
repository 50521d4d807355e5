// states_program: a long operation of the size that a test can kill at every write
//
//   states_program run STEPS     does what is left of the steps, tells each one that was recorded
//   states_program show STEPS    tells what is recorded, "ERROR" if the file cannot be read
//
// The settings lie in the directory KM_STATES_HOME.
#include "base_configuration.h"
#include "states.h"
#include "ustring.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

void tell(const std::string& line) {
    if (::write(1, (line + "\n").c_str(), line.size() + 1) < 0)
        std::abort();
}

// A value of some length makes the file grow, and then be rewritten without its dead slots.
bool note(km::states& record, const std::string& step) {
    const std::string value(4000, step.back());
    return record.setenv(km::ustring("step"), value.c_str());
}

} // namespace

int main(int count, char** words) {
    const char* home = std::getenv("KM_STATES_HOME");
    if (count != 3 || !home)
        return 2;
    km::set_configuration_location(km::pathname(home));
    const bool runs = std::strcmp(words[1], "run") == 0;
    km::states record("op");
    const int opened = record.open(runs, 0);
    if (opened != km::states::success)
        return opened == km::states::no_file ? 0 : 3;
    if (record.get_table_error())
        tell("ERROR");
    bool all = true;
    for (int i = 0; i < std::atoi(words[2]); ++i) {
        const std::string step = "s" + std::to_string(i);
        if (runs && record.current_operation(step.c_str()))
            all = note(record, step) && record.commit() && all;
        if (record.operation_exists(step.c_str()))
            tell(step);
    }
    return all ? 0 : 1;
}
