// messages: the engine's messages for people
// no format
// invariant: no message of the engine is lost
#include "messages.h"

#include <set>

namespace kmhost {

namespace {
severity severity_of(char letter) {
    return letter == 'E' ? severity::error : letter == 'W' ? severity::warning : severity::info;
}
} // namespace

void take_messages(const km::spmessage& from, outcome& result) {
    std::set<std::string> seen;
    for (int i = 0; i < from.get_count(); ++i) {
        std::string text = from.text_of(i);
        severity level = severity::info;
        if (text.size() > 2 && text[1] == ' ' &&
            (text[0] == 'E' || text[0] == 'W' || text[0] == 'I')) {
            level = severity_of(text[0]);
            text.erase(0, 2);
        }
        while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
            text.pop_back();
        if (seen.insert(text).second)
            result.messages.push_back({from.id_of(i), level, text});
    }
}

std::string without_id(const std::string& text) {
    constexpr size_t id_length = 10; // "ZNPSE0287E"
    return text.compare(0, 5, "ZNPSE") == 0 && text.size() > id_length && text[id_length] == ' '
               ? text.substr(id_length + 1)
               : text;
}

} // namespace kmhost
