// program_exit_codes: which exit code of a program means which result
// no format
// invariant: every code has a result
#include "program_exit_codes.h"

#include <cstdlib>

namespace km {

namespace {

struct word {
    const char* text;
    cm_result result;
};
constexpr word words[] = {
    {"success", cm_command::success},
    {"restart_now", cm_command::success_reboot_now},
    {"restart_now_again", cm_command::success_reboot_now_reexecute},
    {"restart", cm_command::success_reboot_after},
    {"restart_again", cm_command::success_reboot_after_reexecute},
    {"in_restart", cm_command::success_in_a_reboot},
    {"retry", cm_command::success_retry},
    {"warning", cm_command::warning},
    {"temporary", cm_command::temporary_failure},
    {"failure", cm_command::failure},
};
constexpr int temporary_code = 75; // EX_TEMPFAIL
constexpr int highest_code = 255;

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\n");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\n") - first + 1);
}

bool read_code(const std::string& text, int& code) {
    if (text.empty() || text.size() > 3 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    code = std::atoi(text.c_str());
    return code <= highest_code;
}

} // namespace

bool program_exit_codes::read_range(const std::string& text, std::string& fault) {
    const size_t colon = text.find(':');
    const std::string codes = trimmed(text.substr(0, colon));
    const size_t dash = codes.find('-');
    range one{};
    if (!read_code(trimmed(codes.substr(0, dash)), one.low) ||
        !read_code(dash == std::string::npos ? trimmed(codes) : trimmed(codes.substr(dash + 1)),
                   one.high) ||
        one.low > one.high) {
        fault = "'" + trimmed(text) + "' does not begin with a code from 0 to 255, or LOW-HIGH";
        return false;
    }
    const std::string name = colon == std::string::npos ? "" : trimmed(text.substr(colon + 1));
    for (const word& known : words)
        if (name == known.text) {
            one.result = known.result;
            ranges_.push_back(one);
            return true;
        }
    fault = "'" + name + "' is none of";
    for (const word& known : words)
        fault += std::string(" ") + known.text;
    return false;
}

bool program_exit_codes::read(const std::string& text, std::string& fault) {
    ranges_.clear();
    if (trimmed(text).empty())
        return true;
    for (size_t at = 0; at != std::string::npos;) {
        const size_t comma = text.find(',', at);
        if (!read_range(text.substr(at, comma == std::string::npos ? comma : comma - at), fault)) {
            ranges_.clear();
            return false;
        }
        at = comma == std::string::npos ? comma : comma + 1;
    }
    return true;
}

cm_result program_exit_codes::result_of(int code) const {
    for (const range& one : ranges_)
        if (code >= one.low && code <= one.high)
            return one.result;
    return code == 0                ? cm_command::success
           : code == temporary_code ? cm_command::temporary_failure
                                    : cm_command::failure;
}

} // namespace km
