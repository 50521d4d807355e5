// messages: the engine's messages for people
// no format
// invariant: no message of the engine is lost but what a later one overtakes
#include "messages.h"

#include "object_messages.h"

#include <map>
#include <set>

namespace kmhost {

namespace {
severity severity_of(char letter) {
    return letter == 'E' ? severity::error : letter == 'W' ? severity::warning : severity::info;
}
// Of a message that a file system is too small: what is free there. Empty for others.
std::string free_room_of(const km::message_entry& one) {
    constexpr size_t free_at = 2;
    const auto* words = std::get_if<km::StringList>(&one.arguments);
    const bool is_told = one.catalogue == km::object_catalog[0] && one.key == km::om_no_room;
    return is_told && words && words->size() > free_at ? (*words)[free_at] : std::string();
}

// Each file that finds no room tells what it needs with all before it: only the last of them, of
// what may be thousands, tells a person how much to make free.
std::set<int> overtaken(const km::spmessage& from) {
    std::set<int> all;
    std::map<std::string, int> last;
    for (int i = 0; i < from.get_count(); ++i) {
        const auto room = free_room_of(from.get_message()->entries[static_cast<size_t>(i)]);
        if (room.empty())
            continue;
        if (const auto [at, is_new] = last.emplace(room, i); !is_new) {
            all.insert(at->second);
            at->second = i;
        }
    }
    return all;
}
} // namespace

void take_messages(const km::spmessage& from, outcome& result) {
    std::set<std::string> seen;
    const std::set<int> passed = overtaken(from);
    for (int i = 0; i < from.get_count(); ++i) {
        if (passed.count(i))
            continue;
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
